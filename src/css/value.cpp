#include "css/value.hpp"

#include <cstdio>

namespace vellum::css::value {

namespace {

using lexer::number_text;
using lexer::quoted;

std::string hex2(int v) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "%02x", v & 0xff);
    return buf;
}

// Terms in a list are separated by blanks, except around commas and slashes.
std::string join(std::vector<value> const& list) {
    std::string out;
    bool glue = true;
    for (auto const& v : list) {
        bool const sep = std::holds_alternative<comma>(v) || std::holds_alternative<slash>(v);
        if (!glue && !sep) {
            out += ' ';
        }
        out += to_text(v);
        glue = sep;
    }
    return out;
}

} // namespace

bool attr::operator==(attr const& other) const {
    if (attr_name != other.attr_name || attr_type != other.attr_type) {
        return false;
    }
    if (!attr_default || !other.attr_default) {
        return !attr_default && !other.attr_default;
    }
    return *attr_default == *other.attr_default;
}

bool function::operator==(function const& other) const {
    return function_name == other.function_name && function_args == other.function_args;
}

bool values::operator==(values const& other) const {
    return value_list == other.value_list;
}

std::string to_text(value const& v) {
    return std::visit(overloaded{
                          [](ident const& i) { return i.ident_name; },
                          [](string const& s) { return quoted(s.string_text); },
                          [](attr const& a) {
                              std::string out = "attr(";
                              if (a.attr_name.attr_ns) {
                                  out += "[" + *a.attr_name.attr_ns + "]|";
                              }
                              out += a.attr_name.attr_local;
                              if (a.attr_type) {
                                  out += ", " + *a.attr_type;
                              }
                              if (a.attr_default) {
                                  out += ", " + to_text(*a.attr_default);
                              }
                              return out + ")";
                          },
                          [](number const& n) { return number_text(n.number_value); },
                          [](dimension const& d) { return number_text(d.dimension_value) + d.dimension_unit; },
                          [](percent const& p) { return number_text(p.percent_value) + "%"; },
                          [](hexcolor const& h) { return "#" + hex2(h.red) + hex2(h.green) + hex2(h.blue); },
                          [](function const& f) {
                              std::string out = f.function_name + "(";
                              for (std::size_t i = 0; i < f.function_args.size(); ++i) {
                                  out += (i > 0 ? ", " : "") + to_text(f.function_args[i]);
                              }
                              return out + ")";
                          },
                          [](url const& u) { return "url(" + quoted(u.url_text) + ")"; },
                          [](unicode_range const& r) {
                              return lexer::to_text(lexer::unicode_range{r.ranges});
                          },
                          [](values const& vs) { return join(vs.value_list); },
                          [](slash const&) { return std::string("/"); },
                          [](comma const&) { return std::string(","); },
                      },
                      v);
}

} // namespace vellum::css::value
