// The script host without the compiler: script functions are stood in for by a recording call hook, so
// that the order of timers and listeners, the reporting of exceptions and the argument checks of the host
// functions are seen exactly.
#include "host/events.hpp"
#include "host/hostjs.hpp"
#include "js/convert.hpp"
#include "js/errors.hpp"
#include "js/object.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace vellum::hostjs {
namespace {

namespace e = js::eval;

// A host with its log captured in a temporary file, and script functions that record their calls.
struct fixture {
    std::FILE* log_file = std::tmpfile();
    log::log log{.log_verbosity = log::verbosity::debug,
                 .log_stderr = log::console_log::console_log{.progname = "vellum", .console_out = log_file}};
    std::shared_ptr<host_js> host = make_host(log, nullptr, host_settings{.app_version = "1.0", .user_agent = "UA"});
    e::js& engine = *host->js;
    /// The names of the script functions called, in order.
    std::vector<std::string> calls;
    /// What each call saw of `Vellum.pageCount`.
    std::vector<std::string> page_counts;

    fixture() {
        engine.js_hooks.call_javascript = [this](e::js& en, js_object, e::javascript_func const& f, js_value const&,
                                                 std::vector<js_value> const& args) -> e::expr_res<js_value> {
            std::string const name = resource::locator::locator_to_string(f.func_filename);
            calls.push_back(name);
            if (name.ends_with("throws")) {
                return e::throw_error(en, e::js_error::invalid_arguments);
            }
            if (name.ends_with("count")) {
                auto n = e::get(en, host->host_js_vellum_object.vellum_object_ref, e::key_of_utf8("pageCount"));
                page_counts.push_back(jsstring::to_utf8(std::get<e::js_string>(e::to_string(en, std::get<js_value>(n)))));
            }
            if (name.ends_with("echo") && !args.empty()) {
                return args.front();
            }
            return e::undefined();
        };
    }

    ~fixture() { std::fclose(log_file); }

    /// A script function that records its name when called.
    js_object func(std::string const& name) {
        return e::new_function(engine, e::javascript_func{.func_filename =
                                                              resource::locator::resolve_locator({}, "about:" + name)});
    }

    js_value global(std::string const& name) {
        return std::get<js_value>(e::get(engine, engine.global_object, e::key_of_utf8(name)));
    }

    js_value member(js_value const& o, std::string const& name) {
        return std::get<js_value>(e::get(engine, std::get<js_object>(o), e::key_of_utf8(name)));
    }

    e::expr_res<js_value> call(js_value const& self, js_value const& f, std::vector<js_value> args) {
        return e::call(engine, self, f, args);
    }

    e::expr_res<js_value> call_global(std::string const& name, std::vector<js_value> args) {
        return call(engine.global_object, global(name), std::move(args));
    }

    js_value vellum() { return host->host_js_vellum_object.vellum_object_ref; }

    std::string logged() {
        std::fflush(log_file);
        std::rewind(log_file);
        std::string out;
        for (int c = 0; (c = std::fgetc(log_file)) != EOF;) {
            out += char(c);
        }
        return out;
    }

    std::vector<std::string> names(std::vector<std::string> const& short_names) {
        std::vector<std::string> out;
        for (auto const& n : short_names) {
            out.push_back("about:" + n);
        }
        return out;
    }
};

js_value str(std::string const& s) {
    return jsstring::from_utf8(s);
}

js_value num(std::int64_t n) {
    return js::number{n};
}

bool threw(e::expr_res<js_value> const& r) {
    return e::is_exception(r);
}

TEST(hostjs, timers_with_equal_delays_run_latest_first) {
    fixture f;
    EXPECT_EQ(f.call_global("setTimeout", {f.func("f"), num(10)}), e::expr_res<js_value>(num(1)));
    EXPECT_EQ(f.call_global("setTimeout", {f.func("g"), num(10)}), e::expr_res<js_value>(num(2)));
    EXPECT_EQ(f.call_global("setTimeout", {f.func("h"), num(0)}), e::expr_res<js_value>(num(3)));
    f.call_global("setTimeout", {f.func("gone"), num(5)});
    EXPECT_FALSE(threw(f.call_global("clearTimeout", {num(4)})));
    // An id that is not waiting is ignored.
    EXPECT_FALSE(threw(f.call_global("clearTimeout", {num(99)})));
    run_timeouts(*f.host);
    EXPECT_EQ(f.calls, f.names({"h", "g", "f"}));
}

TEST(hostjs, set_timeout_checks_and_warns_once_timers_ran) {
    fixture f;
    EXPECT_TRUE(threw(f.call_global("setTimeout", {f.func("f")})));
    EXPECT_TRUE(threw(f.call_global("clearTimeout", {})));
    run_timeouts(*f.host);
    // Too late: nothing is stored, and nothing runs.
    EXPECT_EQ(f.call_global("setTimeout", {f.func("late"), num(0)}), e::expr_res<js_value>(e::undefined()));
    run_timeouts(*f.host);
    EXPECT_TRUE(f.calls.empty());
    EXPECT_NE(f.logged().find("warning: setTimeout called too late"), std::string::npos);
}

TEST(hostjs, timer_arguments_and_exceptions) {
    fixture f;
    f.call_global("setTimeout", {f.func("throws"), num(1)});
    f.call_global("setTimeout", {f.member(f.global("Log"), "info"), num(2),
                                 str("after "), str("failure")});
    run_timeouts(*f.host);
    auto const log = f.logged();
    EXPECT_NE(log.find("error: TypeError: invalid arguments"), std::string::npos) << log;
    EXPECT_NE(log.find("vellum: after failure"), std::string::npos) << log;
}

TEST(hostjs, listeners_run_latest_first_once_each_without_capture) {
    fixture f;
    auto const add = f.member(f.vellum(), "addEventListener");
    auto const a = f.func("a");
    auto const b = f.func("b");
    f.call(f.vellum(), add, {str("x"), a});
    f.call(f.vellum(), add, {str("x"), b});
    f.call(f.vellum(), add, {str("x"), a});
    f.call(f.vellum(), add, {str("x"), f.func("capture"), true});
    f.call(f.vellum(), add, {str("y"), f.func("other")});
    fire_event(f.engine, std::get<js_object>(f.vellum()), "x");
    EXPECT_EQ(f.calls, f.names({"b", "a"}));

    f.calls.clear();
    f.call(f.vellum(), f.member(f.vellum(), "removeEventListener"), {str("x"), b});
    // Removing with another capture flag is another pair: nothing happens.
    f.call(f.vellum(), f.member(f.vellum(), "removeEventListener"), {str("x"), a, true});
    fire_event(f.engine, std::get<js_object>(f.vellum()), "x");
    EXPECT_EQ(f.calls, f.names({"a"}));
}

TEST(hostjs, a_throwing_listener_is_reported_and_the_others_run) {
    fixture f;
    auto const add = f.member(f.vellum(), "addEventListener");
    f.call(f.vellum(), add, {str("x"), f.func("first")});
    f.call(f.vellum(), add, {str("x"), f.func("throws")});
    f.call(f.vellum(), add, {str("x"), f.func("last")});
    fire_event(f.engine, std::get<js_object>(f.vellum()), "x");
    EXPECT_EQ(f.calls, f.names({"last", "throws", "first"}));
    EXPECT_NE(f.logged().find("TypeError: invalid arguments"), std::string::npos);
}

TEST(hostjs, event_target_methods_check_this_and_arguments) {
    fixture f;
    auto const add = f.member(f.vellum(), "addEventListener");
    EXPECT_TRUE(threw(f.call(f.global("navigator"), add, {str("x"), f.func("a")})));
    EXPECT_TRUE(threw(f.call(f.vellum(), add, {str("x"), str("not a function")})));
    EXPECT_TRUE(threw(f.call(f.vellum(), f.member(f.vellum(), "dispatchEvent"), {})));
    // Without a base, the window is the target.
    EXPECT_FALSE(threw(f.call(e::undefined(), f.global("addEventListener"), {str("load"), f.func("w")})));
}

TEST(hostjs, load_listeners_run_before_onload) {
    fixture f;
    f.call_global("addEventListener", {str("load"), f.func("listener")});
    ASSERT_FALSE(threw(e::put(f.engine, f.engine.global_object, e::key_of_utf8("onload"), f.func("onload"))));
    fire_event(f.engine, f.engine.global_object, "load", "onload");
    EXPECT_EQ(f.calls, f.names({"listener", "onload"}));
}

TEST(hostjs, complete_listener_keeps_the_host_and_sees_the_page_count) {
    fixture f;
    EXPECT_FALSE(host_needed_later(*f.host));
    f.call(f.vellum(), f.member(f.vellum(), "addEventListener"), {str("complete"), f.func("count")});
    ASSERT_FALSE(threw(e::put(f.engine, std::get<js_object>(f.vellum()), e::key_of_utf8("oncomplete"), f.func("oncount"))));
    EXPECT_TRUE(host_needed_later(*f.host));
    fire_complete(*f.host, 7);
    EXPECT_EQ(f.calls, f.names({"count", "oncount"}));
    EXPECT_EQ(f.page_counts, (std::vector<std::string>{"7", "7"}));
}

TEST(hostjs, log_levels_join_their_arguments) {
    fixture f;
    auto const log_object = f.global("Log");
    for (auto const* level : {"debug", "info", "warning", "error"}) {
        SCOPED_TRACE(level);
        EXPECT_FALSE(threw(f.call(log_object, f.member(log_object, level), {str(level), str(":"), num(1)})));
    }
    EXPECT_FALSE(threw(f.call_global("alert", {str("x")})));
    EXPECT_TRUE(threw(f.call(log_object, f.member(log_object, "data"), {str("only one")})));
    auto const log = f.logged();
    EXPECT_NE(log.find("debug: debug:1"), std::string::npos) << log;
    EXPECT_NE(log.find("info:1"), std::string::npos) << log;
    EXPECT_NE(log.find("warning: warning:1"), std::string::npos) << log;
    EXPECT_NE(log.find("error: error:1"), std::string::npos) << log;
    EXPECT_NE(log.find("warning: x"), std::string::npos) << log;
    // alert is Log.warning itself, and Vellum.Log the same object.
    EXPECT_EQ(f.global("alert"), f.member(log_object, "warning"));
    EXPECT_EQ(f.member(f.vellum(), "Log"), log_object);
}

TEST(hostjs, add_script_func_checks_its_arguments_and_replaces) {
    fixture f;
    auto const add = f.member(f.vellum(), "addScriptFunc");
    struct bad_case {
        char const* name;
        std::vector<js_value> args;
    };
    for (auto const& c : {bad_case{"none", {}},
                          bad_case{"one", {str("f")}},
                          bad_case{"name not a string", {num(1), f.func("a")}},
                          bad_case{"function not an object", {str("f"), str("a")}},
                          bad_case{"three", {str("f"), f.func("a"), num(1)}}}) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(threw(f.call(f.vellum(), add, c.args)));
    }
    EXPECT_TRUE(get_script_funcs(*f.host).empty());
    auto const first = f.func("first");
    auto const second = f.func("echo");
    f.call(f.vellum(), add, {str("f"), first});
    f.call(f.vellum(), add, {str("g"), first});
    f.call(f.vellum(), add, {str("f"), second});
    auto const funcs = get_script_funcs(*f.host);
    ASSERT_EQ(funcs.size(), 2u);
    EXPECT_EQ(funcs[0].first, "f");
    EXPECT_EQ(js_value(funcs[0].second), js_value(second));
    EXPECT_TRUE(host_needed_later(*f.host));
    EXPECT_EQ(call_script_func(*f.host, "f", {"value"}), std::optional<std::string>("value"));
    EXPECT_EQ(call_script_func(*f.host, "missing", {}), std::nullopt);
    EXPECT_NE(f.logged().find("unknown script function missing, register with Vellum.addScriptFunc"), std::string::npos);
}

TEST(hostjs, track_boxes_and_navigator) {
    fixture f;
    EXPECT_EQ(f.member(f.vellum(), "trackBoxes"), js_value(false));
    ASSERT_FALSE(threw(e::put(f.engine, std::get<js_object>(f.vellum()), e::key_of_utf8("trackBoxes"), num(1))));
    EXPECT_TRUE(track_boxes(*f.host));
    EXPECT_TRUE(host_needed_later(*f.host));
    auto const nav = f.global("navigator");
    EXPECT_EQ(f.member(nav, "appName"), str("Vellum"));
    EXPECT_EQ(f.member(nav, "appVersion"), str("1.0"));
    EXPECT_EQ(f.member(nav, "userAgent"), str("UA"));
    EXPECT_EQ(f.member(nav, "platform"), str(""));
    // navigator is read-only, window may be replaced.
    ASSERT_FALSE(threw(e::put(f.engine, f.engine.global_object, e::key_of_utf8("navigator"), num(1))));
    EXPECT_EQ(f.global("navigator"), nav);
    EXPECT_EQ(f.global("window"), js_value(f.engine.global_object));
    EXPECT_EQ(f.global("self"), js_value(f.engine.global_object));
    EXPECT_EQ(e::class_name(f.engine, f.engine.global_object), "Window");
    EXPECT_EQ(e::class_name(f.engine, std::get<js_object>(f.vellum())), "Vellum");
    // Interfaces cannot be constructed.
    EXPECT_TRUE(e::is_exception(e::construct(f.engine, f.global("Window"), {})));
}

TEST(events, listener_list_order) {
    events::event_target t = events::list_event_target{};
    e::object_data da, db;
    js_object const a{&da};
    js_object const b{&db};
    events::add_listener(t, "x", {a, false});
    events::add_listener(t, "x", {b, false});
    events::add_listener(t, "x", {a, false});
    events::add_listener(t, "x", {a, true});
    EXPECT_EQ(events::listeners_to_call(t, "x"), (std::vector<js_object>{b, a}));
    EXPECT_TRUE(events::has_listener(t, "x"));
    events::remove_listener(t, "x", {b, false});
    events::remove_listener(t, "x", {a, false});
    events::remove_listener(t, "x", {a, true});
    EXPECT_FALSE(events::has_listener(t, "x"));
    // A null target takes nothing.
    events::event_target n = events::null_event_target{};
    events::add_listener(n, "x", {a, false});
    EXPECT_FALSE(events::has_listener(n, "x"));
}

} // namespace
} // namespace vellum::hostjs
