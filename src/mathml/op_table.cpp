#include "mathml/op_table.hpp"

#include "mathml/datafile.hpp"
#include "util/cell.hpp"

#include <cstdio>
#include <memory>

namespace vellum::mathml::op_table {

std::optional<op_form> form_of(std::string_view word) {
    if (word == "prefix") {
        return op_form::prefix;
    }
    if (word == "infix") {
        return op_form::infix;
    }
    if (word == "postfix") {
        return op_form::postfix;
    }
    return std::nullopt;
}

std::optional<maxsize> parse_maxsize(std::string_view text) {
    if (text == "infinity") {
        return infinity{};
    }
    auto m = units::parse_mathspace(text);
    if (!m) {
        return std::nullopt;
    }
    // A percentage or a bare number is a multiple of the operator's normal size.
    if (auto const* l = std::get_if<units::length>(&*m)) {
        if (l->length_unit == units::unit::percent) {
            return multiplier{l->length_value / 100};
        }
        if (l->length_unit == units::unit::none) {
            return multiplier{l->length_value};
        }
    }
    return *m;
}

result<op_table> parse_op_table(std::string_view text) {
    auto elements = datafile::parse_elements(text);
    if (!elements) {
        return fail(elements.error());
    }
    op_table out;
    for (auto const& e : *elements) {
        auto const op = datafile::attribute(e, "text");
        auto const form_word = datafile::attribute(e, "form");
        auto const form = form_word ? form_of(*form_word) : std::nullopt;
        if (!op || !form) {
            return fail("operator entry without text or form");
        }
        mostyle s;
        auto const flag = [&](char const* name, bool& field) -> result<bool> {
            if (auto v = datafile::attribute(e, name)) {
                if (*v != "true" && *v != "false") {
                    return fail(std::string(name) + ": not true or false: " + *v);
                }
                field = *v == "true";
            }
            return true;
        };
        for (auto [name, field] :
             {std::pair{"stretchy", &s.stretchy}, std::pair{"symmetric", &s.symmetric},
              std::pair{"largeop", &s.largeop}, std::pair{"movablelimits", &s.movablelimits},
              std::pair{"accent", &s.accent}, std::pair{"fence", &s.fence},
              std::pair{"separator", &s.separator}}) {
            auto ok = flag(name, *field);
            if (!ok) {
                return fail(ok.error());
            }
        }
        for (auto [name, field] : {std::pair{"lspace", &s.lspace}, std::pair{"rspace", &s.rspace}}) {
            if (auto v = datafile::attribute(e, name)) {
                auto m = units::parse_mathspace(*v);
                if (!m) {
                    return fail(std::string(name) + ": not a space: " + *v);
                }
                *field = *m;
            }
        }
        if (auto v = datafile::attribute(e, "maxsize")) {
            auto m = parse_maxsize(*v);
            if (!m) {
                return fail("maxsize: not a size: " + *v);
            }
            s.maxsize = *m;
        }
        if (auto v = datafile::attribute(e, "minsize")) {
            auto m = parse_maxsize(*v);
            if (!m || std::holds_alternative<infinity>(*m)) {
                return fail("minsize: not a size: " + *v);
            }
            if (auto const* mul = std::get_if<multiplier>(&*m)) {
                s.minsize = *mul;
            } else {
                s.minsize = std::get<units::mathspace>(*m);
            }
        }
        out.try_emplace({*op, *form}, s);
    }
    return out;
}

op_table const& load_operators(log::log const& log, resource::loader::loader const& l) {
    static cell<std::shared_ptr<op_table const>> loaded;
    if (auto t = loaded.get()) {
        return *t;
    }
    auto text = datafile::read_system_file(log, l, "math/operators.xml");
    std::shared_ptr<op_table const> table;
    if (!text) {
        log::log_warning(log, "math/operators.xml: " + text.error() + "; operators have the default spacing");
        table = std::make_shared<op_table const>();
    } else if (auto t = parse_op_table(*text); !t) {
        log::log_warning(log, "math/operators.xml: " + t.error() + "; operators have the default spacing");
        table = std::make_shared<op_table const>();
    } else {
        table = std::make_shared<op_table const>(std::move(*t));
    }
    loaded.set(table);
    // The cell keeps the table for the whole run, so the reference stays good.
    return *loaded.get();
}

std::optional<mostyle> find_op(op_table const& table, std::string const& text, op_form form) {
    for (auto const f : {form, op_form::infix, op_form::postfix, op_form::prefix}) {
        if (auto const it = table.find({text, f}); it != table.end()) {
            return it->second;
        }
    }
    return std::nullopt;
}

mostyle get_op_style(op_table const& table, std::string const& text, op_form form) {
    return find_op(table, text, form).value_or(mostyle{});
}

} // namespace vellum::mathml::op_table
