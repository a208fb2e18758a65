// js-run: parses and runs script files one after the other in one engine, as a developer's check of the
// script engine. Prints each file's completion value, or its uncaught exception with file and line.
//
//   js-run FILE...
//
// Exit status: 0 if every file ran to its end, 1 if one threw or did not parse, 2 for bad usage.

#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"
#include "js/parse.hpp"
#include "js/run.hpp"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using namespace vellum::js::eval;

/// The text of a value for the terminal: strings as they are, objects by `toString` where that works.
std::string show(js& engine, js_value const& v) {
    auto s = to_string(engine, v);
    if (auto const* text = std::get_if<js_string>(&s)) {
        return vellum::jsstring::to_utf8(*text);
    }
    if (auto const* o = std::get_if<js_object>(&v)) {
        return "[object " + class_name(engine, *o) + "]";
    }
    return "?";
}

std::string exception_text(js& engine, js_value const& thrown) {
    std::string text = show(engine, thrown);
    if (auto const* o = std::get_if<js_object>(&thrown)) {
        if (text.starts_with("[object")) {
            // Without the standard library an error has no `toString`: show its name and message.
            auto part = [&](char const* name) {
                auto r = get(engine, *o, key_of_utf8(name));
                return is_exception(r) ? std::string() : show(engine, std::get<js_value>(r));
            };
            text = part("name") + ": " + part("message");
        }
        auto line = get(engine, *o, key_of_utf8("lineNumber"));
        auto file = get(engine, *o, key_of_utf8("fileName"));
        if (!is_exception(file) && std::holds_alternative<js_string>(std::get<js_value>(file))) {
            std::string where = show(engine, std::get<js_value>(file));
            if (!is_exception(line) && std::holds_alternative<vellum::js::number>(std::get<js_value>(line))) {
                where += ":" + show(engine, std::get<js_value>(line));
            }
            text = where + ": " + text;
        }
    }
    return text;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: js-run FILE...\n");
        return 2;
    }
    auto engine = new_engine(vellum::log::console("js-run"), nullptr, nullptr);
    for (int i = 1; i < argc; ++i) {
        std::ifstream in(argv[i], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "js-run: cannot read %s\n", argv[i]);
            return 1;
        }
        std::ostringstream text;
        text << in.rdbuf();
        auto parsed = vellum::js::parse::parse_string(*engine, text.str());
        if (auto const* e = std::get_if<vellum::js::js_error>(&parsed)) {
            std::printf("%s:%s: syntax error: %s\n", argv[i], e->error_line ? std::to_string(*e->error_line).c_str() : "?",
                        e->error_message.c_str());
            return 1;
        }
        vellum::resource::locator::locator where{
            .locator_url = vellum::resource::locator::file{.file_path = {.path = argv[i]}}};
        context ctx{.source_locator = where,
                    .type_of_code = type_of_code::global_code,
                    .scope_chain = {normal_scope{.scope_object = engine->global_object}},
                    .variable_object = std::nullopt,
                    .this_value = engine->global_object};
        auto r = run_code(*engine, ctx, std::get<vellum::js::source_elements>(parsed));
        if (auto const* e = std::get_if<exception>(&r)) {
            std::printf("uncaught exception: %s\n", exception_text(*engine, e->exception_value).c_str());
            return 1;
        }
        std::printf("%s\n", show(*engine, std::get<js_value>(r)).c_str());
    }
    return 0;
}
