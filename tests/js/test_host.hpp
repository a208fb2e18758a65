// A small embedding for the tests of the object model: host functions made of lambdas, a collection with
// indexed and named entries, a host property getter, and a constructor; plus shorthands for values.
#pragma once

#include "driver/log.hpp"
#include "js/convert.hpp"
#include "js/engine.hpp"
#include "js/errors.hpp"
#include "js/host.hpp"
#include "js/object.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vellum::js::eval::testing {

/// A host function: its behaviour is a lambda.
struct test_func : host_data {
    std::function<expr_res<js_value>(js&, js_value const&, std::vector<js_value> const&)> fn;
};

/// A collection like a DOM node list: indexed items and named items, both answered by the host.
struct test_collection : host_data {
    std::vector<js_value> items;
    std::map<std::string, js_value> named;
};

/// A host property whose value the host supplies.
struct test_getter : host_data {
    js_value value;
    int reads = 0;
};

/// A host constructor that makes an object with a `made` property.
struct test_constructor : host_data {
    bool callable = false;
};

struct test_host : host_interface {
    std::string get_class_name(host_value const& h) override {
        return dynamic_cast<test_collection*>(h.get()) ? "TestCollection" : "TestObject";
    }

    expr_res<js_value> call_host_func(js& engine,
                                      js_value const& this_value,
                                      host_value const& h,
                                      std::vector<js_value> const& args) override {
        if (auto* f = dynamic_cast<test_func*>(h.get())) {
            return f->fn(engine, this_value, args);
        }
        return jsstring::from_utf8("called as function");
    }

    expr_res<js_value> call_host_constructor(js& engine,
                                             host_value const&,
                                             std::vector<js_value> const& args) override {
        js_object o = new_object(engine);
        define_value(o, "made", arg(args, 0));
        return o;
    }

    std::optional<js_value> get_own_property(js&, js_object, host_value const& h, js_prop_string const& key) override {
        auto* c = dynamic_cast<test_collection*>(h.get());
        if (auto i = array_index(key); i && *i < c->items.size()) {
            return c->items[*i];
        }
        if (auto it = c->named.find(key_to_utf8(key)); it != c->named.end()) {
            return it->second;
        }
        return std::nullopt;
    }

    std::optional<expr_res<js_value>> set_own_property(js&,
                                                       js_object,
                                                       host_value const& h,
                                                       js_prop_string const& key,
                                                       js_value const& value) override {
        auto* c = dynamic_cast<test_collection*>(h.get());
        if (auto i = array_index(key); i && *i < c->items.size()) {
            c->items[*i] = value;
            return expr_res<js_value>{value};
        }
        return std::nullopt;
    }

    std::vector<js_prop_string> enum_supported_names(host_value const& h) override {
        std::vector<js_prop_string> names;
        for (auto const& [name, value] : dynamic_cast<test_collection*>(h.get())->named) {
            names.push_back(key_of_utf8(name));
        }
        return names;
    }

    std::int64_t get_supported_index_length(host_value const& h) override {
        return static_cast<std::int64_t>(dynamic_cast<test_collection*>(h.get())->items.size());
    }

    expr_res<js_value> to_js_value(js&, host_value const& h) override {
        auto* g = dynamic_cast<test_getter*>(h.get());
        ++g->reads;
        return g->value;
    }

    bool constructor_callable(host_value const& h) override {
        return dynamic_cast<test_constructor*>(h.get())->callable;
    }
};

inline js_value str(char const* s) {
    return jsstring::from_utf8(s);
}

inline js_value num(std::int64_t n) {
    return number{n};
}

inline js_value dbl(double d) {
    return number{d};
}

/// The value of a result that must not have thrown.
template <class T>
T ok(expr_res<T> r) {
    if (auto const* e = std::get_if<exception>(&r)) {
        ADD_FAILURE() << "unexpected exception";
        (void)e;
        return T{};
    }
    return std::get<T>(std::move(r));
}

/// The text of a value, for comparisons in tests.
inline std::string text_of(js& engine, js_value const& v) {
    return jsstring::to_utf8(ok(to_string(engine, v)));
}

/// A log that writes nowhere.
inline log::log quiet_log() {
    return log::log{.log_stderr = log::no_stderr_log{}};
}

/// An engine with the test host.
struct engine_test : ::testing::Test {
    std::shared_ptr<test_host> host = std::make_shared<test_host>();
    std::unique_ptr<js> engine_ptr = new_engine(quiet_log(), nullptr, host);
    js& engine = *engine_ptr;

    /// A host function object.
    js_object func(std::function<expr_res<js_value>(js&, js_value const&, std::vector<js_value> const&)> fn) {
        auto h = std::make_shared<test_func>();
        h->fn = std::move(fn);
        return new_function(engine, host_func{.func_host = h});
    }

    /// A function that always gives v.
    js_object returning(js_value v) {
        return func([v](js&, js_value const&, std::vector<js_value> const&) -> expr_res<js_value> { return v; });
    }

    /// The error kind name and message of a thrown value.
    std::string thrown_text(js_value const& v) {
        auto o = std::get<js_object>(v);
        auto name = ok(get(engine, o, key_of_utf8("name")));
        auto message = ok(get(engine, o, key_of_utf8("message")));
        return text_of(engine, name) + ": " + text_of(engine, message);
    }

    template <class T>
    std::string thrown(expr_res<T> const& r) {
        auto const* e = std::get_if<exception>(&r);
        if (e == nullptr) {
            return "no exception";
        }
        return thrown_text(e->exception_value);
    }
};

} // namespace vellum::js::eval::testing
