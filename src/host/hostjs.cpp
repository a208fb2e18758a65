#include "host/hostjs.hpp"

#include "host/domjs.hpp"
#include "host/webidl.hpp"
#include "js/convert.hpp"
#include "js/errors.hpp"
#include "js/host.hpp"
#include "js/object.hpp"
#include "util/ref.hpp"
#include "util/result.hpp"

#include <algorithm>
#include <cstdio>

namespace vellum::hostjs {

namespace e = js::eval;

namespace {

// ---- Host values -----------------------------------------------------------------------------------------

// The host functions of the window, `Log`, `console` and `Vellum`; each carries the state it acts on.
struct window_set_timeout {
    std::shared_ptr<window_timeouts> timeouts;
};

struct window_clear_timeout {
    std::shared_ptr<window_timeouts> timeouts;
};

struct add_script_func {
    std::shared_ptr<script_funcs> funcs;
};

struct vellum_get_track_boxes {
    std::shared_ptr<bool> track;
};

struct vellum_set_track_boxes {
    std::shared_ptr<bool> track;
};

struct log_message {
    log::level level = log::level::info;
};

struct log_data {};

struct console_log {};

struct target_method {
    events::event_target_method method = events::event_target_method::add_event_listener;
};

using vellum_func = std::variant<window_set_timeout,
                                 window_clear_timeout,
                                 add_script_func,
                                 vellum_get_track_boxes,
                                 vellum_set_track_boxes,
                                 log_message,
                                 log_data,
                                 console_log,
                                 target_method>;

struct func_host : e::host_data {
    vellum_func func;
};

// The class of the event objects the system makes.
struct dom_event : e::host_data {};

// Plain host objects with a class name of their own (`Navigator`, `Console`, `Log`).
struct named_host : e::host_data {
    std::string name;
};

e::host_value func_value(vellum_func f) {
    auto h = std::make_shared<func_host>();
    h->func = std::move(f);
    return h;
}

// ---- Helpers ---------------------------------------------------------------------------------------------

bool is_callable(js_value const& v) {
    auto const* o = std::get_if<js_object>(&v);
    return o != nullptr && e::function_of(*o) != nullptr;
}

// The arguments converted to strings and joined with no separator, as the logging functions print them.
e::expr_res<std::string> joined(e::js& engine, std::vector<js_value> const& args) {
    std::string out;
    for (auto const& a : args) {
        auto s = e::to_string(engine, a);
        if (auto const* x = std::get_if<e::exception>(&s)) {
            return *x;
        }
        out += jsstring::to_utf8(std::get<e::js_string>(s));
    }
    return out;
}

// The event target behind `this`; undefined and null stand for the global object, as for any function
// called without a base.
events::event_target const* target_of(e::js& engine, js_value const& this_value) {
    js_object o = engine.global_object;
    if (auto const* t = std::get_if<js_object>(&this_value)) {
        o = *t;
    } else if (!std::holds_alternative<e::js_undefined>(this_value) && !std::holds_alternative<e::js_null>(this_value)) {
        return nullptr;
    }
    auto const* h = std::get_if<e::class_host_object>(&o->obj_class);
    auto const* t = h != nullptr ? dynamic_cast<events::target_host const*>(h->host_object.get()) : nullptr;
    return t != nullptr ? &t->target : nullptr;
}

js_value this_object(e::js& engine, js_value const& this_value) {
    if (std::holds_alternative<js_object>(this_value)) {
        return this_value;
    }
    return engine.global_object;
}

e::expr_res<js_value> set_timeout(e::js& engine, window_timeouts& timeouts, std::vector<js_value> const& args) {
    if (args.size() < 2) {
        return e::throw_error(engine, e::js_error::invalid_arguments);
    }
    if (!timeouts.timeouts_next_id) {
        log::log_warning(engine.js_log, "setTimeout called too late");
        return e::undefined();
    }
    timeout t;
    if (is_callable(args[0])) {
        t.timeout_proc = timeout_func{.func_object = std::get<js_object>(args[0]),
                                      .func_args = std::vector<js_value>(args.begin() + 2, args.end())};
    } else {
        auto text = e::to_string(engine, args[0]);
        if (auto const* x = std::get_if<e::exception>(&text)) {
            return *x;
        }
        t.timeout_proc = timeout_eval{.eval_source = std::get<e::js_string>(text)};
    }
    auto delay = e::to_int32(engine, args[1]);
    if (auto const* x = std::get_if<e::exception>(&delay)) {
        return *x;
    }
    t.timeout_delay = std::get<std::int32_t>(delay);
    auto const id = add_timeout(engine.js_log, timeouts, std::move(t));
    return id ? js_value(js::number{std::int64_t{*id}}) : e::undefined();
}

e::expr_res<js_value> listener_call(e::js& engine,
                                    js_value const& this_value,
                                    events::event_target_method method,
                                    std::vector<js_value> const& args) {
    auto const* target = target_of(engine, this_value);
    if (target == nullptr) {
        return e::throw_error(engine, e::js_error::invalid_this);
    }
    if (method == events::event_target_method::dispatch_event) {
        if (args.size() != 1 || !std::holds_alternative<js_object>(args[0])) {
            return e::throw_error(engine, e::js_error::invalid_arguments);
        }
        auto type = e::get(engine, std::get<js_object>(args[0]), e::key_of_utf8("type"));
        if (auto const* x = std::get_if<e::exception>(&type)) {
            return *x;
        }
        auto type_text = e::to_string(engine, std::get<js_value>(type));
        if (auto const* x = std::get_if<e::exception>(&type_text)) {
            return *x;
        }
        if (std::holds_alternative<events::null_event_target>(*target)) {
            return e::undefined();
        }
        js_value const self = this_object(engine, this_value);
        // The list is copied first: a listener may change it while the event goes round.
        for (auto const& f : events::listeners_to_call(*target, jsstring::to_utf8(std::get<e::js_string>(type_text)))) {
            auto r = e::call(engine, self, f, {args[0]});
            if (auto const* x = std::get_if<e::exception>(&r)) {
                e::report_exception(engine, x->exception_value);
            }
        }
        return e::undefined();
    }
    if (args.size() < 2 || !std::holds_alternative<js_object>(args[1])) {
        return e::throw_error(engine, e::js_error::invalid_arguments);
    }
    auto type = e::to_string(engine, args[0]);
    if (auto const* x = std::get_if<e::exception>(&type)) {
        return *x;
    }
    events::listener const l{.listener_func = std::get<js_object>(args[1]),
                             .listener_capture = e::to_boolean(e::arg(args, 2))};
    auto const name = jsstring::to_utf8(std::get<e::js_string>(type));
    if (method == events::event_target_method::add_event_listener) {
        events::add_listener(*target, name, l);
    } else {
        events::remove_listener(*target, name, l);
    }
    return e::undefined();
}

e::expr_res<js_value> call_func(e::js& engine, js_value const& this_value, vellum_func const& f,
                                std::vector<js_value> const& args) {
    return std::visit(
        overloaded{
            [&](window_set_timeout const& s) { return set_timeout(engine, *s.timeouts, args); },
            [&](window_clear_timeout const& c) -> e::expr_res<js_value> {
                if (args.size() != 1) {
                    return e::throw_error(engine, e::js_error::invalid_arguments);
                }
                auto id = e::to_int32(engine, args[0]);
                if (auto const* x = std::get_if<e::exception>(&id)) {
                    return *x;
                }
                clear_timeout(*c.timeouts, std::get<std::int32_t>(id));
                return e::undefined();
            },
            [&](add_script_func const& a) -> e::expr_res<js_value> {
                if (args.size() != 2 || !std::holds_alternative<e::js_string>(args[0]) ||
                    !std::holds_alternative<js_object>(args[1])) {
                    return e::throw_error(engine, e::js_error::invalid_arguments);
                }
                auto const name = jsstring::to_utf8(std::get<e::js_string>(args[0]));
                auto const func = std::get<js_object>(args[1]);
                auto it = std::ranges::find_if(*a.funcs, [&](auto const& p) { return p.first == name; });
                if (it != a.funcs->end()) {
                    it->second = func;
                } else {
                    a.funcs->emplace_back(name, func);
                }
                return e::undefined();
            },
            [&](vellum_get_track_boxes const& g) -> e::expr_res<js_value> { return js_value(*g.track); },
            [&](vellum_set_track_boxes const& s) -> e::expr_res<js_value> {
                *s.track = e::to_boolean(e::arg(args, 0));
                return e::undefined();
            },
            [&](log_message const& m) -> e::expr_res<js_value> {
                auto text = joined(engine, args);
                if (auto const* x = std::get_if<e::exception>(&text)) {
                    return *x;
                }
                log::log_message(engine.js_log, m.level, log::source_internal{}, std::get<std::string>(text));
                return e::undefined();
            },
            [&](log_data const&) -> e::expr_res<js_value> {
                if (args.size() != 2) {
                    return e::throw_error(engine, e::js_error::invalid_arguments);
                }
                auto name = e::to_string(engine, args[0]);
                if (auto const* x = std::get_if<e::exception>(&name)) {
                    return *x;
                }
                auto value = e::to_string(engine, args[1]);
                if (auto const* x = std::get_if<e::exception>(&value)) {
                    return *x;
                }
                log::log_data(engine.js_log, jsstring::to_utf8(std::get<e::js_string>(name)),
                              jsstring::to_utf8(std::get<e::js_string>(value)));
                return e::undefined();
            },
            [&](console_log const&) -> e::expr_res<js_value> {
                auto text = joined(engine, args);
                if (auto const* x = std::get_if<e::exception>(&text)) {
                    return *x;
                }
                std::string line = std::get<std::string>(text) + "\n";
                std::fwrite(line.data(), 1, line.size(), stdout);
                std::fflush(stdout);
                return e::undefined();
            },
            [&](target_method const& t) { return listener_call(engine, this_value, t.method, args); },
        },
        f);
}

// The embedding's side of the engine for the objects of this host.
struct host_impl : e::host_interface {
    std::string get_class_name(e::host_value const& h) override {
        if (auto const* b = dynamic_cast<webidl::host_binding const*>(h.get())) {
            return b->binding_class_name();
        }
        if (auto const* t = dynamic_cast<events::target_host const*>(h.get())) {
            return t->target_class;
        }
        if (auto const* n = dynamic_cast<named_host const*>(h.get())) {
            return n->name;
        }
        if (auto const* i = dynamic_cast<webidl::webidl_interface_object const*>(h.get())) {
            return i->interface_name;
        }
        if (auto const* p = dynamic_cast<webidl::webidl_prototype_object const*>(h.get())) {
            return p->prototype_name;
        }
        if (dynamic_cast<dom_event const*>(h.get()) != nullptr) {
            return "Event";
        }
        if (auto name = domjs::class_name_of(h)) {
            return *name;
        }
        return "Function";
    }

    e::expr_res<js_value> call_host_func(e::js& engine, js_value const& this_value, e::host_value const& h,
                                         std::vector<js_value> const& args) override {
        if (auto const* f = dynamic_cast<func_host const*>(h.get())) {
            return call_func(engine, this_value, f->func, args);
        }
        if (auto const* n = dynamic_cast<webidl::native_func const*>(h.get())) {
            return n->native_body(engine, this_value, args);
        }
        if (auto* b = dynamic_cast<webidl::host_binding*>(h.get())) {
            return b->binding_call(engine, this_value, args);
        }
        return e::throw_error(engine, e::js_error::not_function);
    }

    e::expr_res<js_value> call_host_constructor(e::js& engine, e::host_value const& h,
                                                std::vector<js_value> const& args) override {
        auto const* i = dynamic_cast<webidl::webidl_interface_object const*>(h.get());
        if (i == nullptr || !i->interface_construct) {
            return e::throw_error(engine, e::js_error::illegal_constructor);
        }
        return call_host_func(engine, e::undefined(), *i->interface_construct, args);
    }

    std::optional<js_value> get_own_property(e::js& engine, js_object o, e::host_value const& h,
                                             e::js_prop_string const& key) override {
        if (auto* b = dynamic_cast<webidl::host_binding*>(h.get())) {
            return b->binding_get(engine, o, key);
        }
        return domjs::collection_get(engine, o, h, key);
    }

    std::optional<e::expr_res<js_value>> set_own_property(e::js& engine, js_object o, e::host_value const& h,
                                                          e::js_prop_string const& key, js_value const& value) override {
        if (auto* b = dynamic_cast<webidl::host_binding*>(h.get())) {
            return b->binding_set(engine, o, key, value);
        }
        return std::nullopt;
    }

    std::vector<e::js_prop_string> enum_supported_names(e::host_value const& h) override {
        return domjs::collection_names(h);
    }

    std::int64_t get_supported_index_length(e::host_value const& h) override {
        if (auto const* b = dynamic_cast<webidl::host_binding const*>(h.get())) {
            return b->binding_length();
        }
        return domjs::collection_length(h);
    }

    e::expr_res<js_value> to_js_value(e::js& engine, e::host_value const& h) override {
        return call_host_func(engine, e::undefined(), h, {});
    }
};

js_object method(e::js& engine, js_object target, std::string const& name, vellum_func f, int length) {
    return webidl::add_method(engine, target, name, func_value(std::move(f)), length);
}

js_object named_object(e::js& engine, std::string name) {
    auto h = std::make_shared<named_host>();
    h->name = std::move(name);
    return e::new_object_of(engine, e::class_host_object{.host_object = h}, e::yes_proto{.proto = engine.object_prototype});
}

e::attrs const hidden = e::attrs{}.with(e::attr::no_enum);

} // namespace

std::shared_ptr<host_js> make_host(log::log const& log,
                                   std::shared_ptr<resource::loader::loader const> loader,
                                   host_settings const& settings) {
    auto host = std::make_shared<host_js>();
    host->js = e::new_engine(log, std::move(loader), std::make_shared<host_impl>());
    e::js& engine = *host->js;

    // The global object is a Window: global, Window.prototype, EventTarget.prototype.
    auto const event_target = webidl::make_interface(engine, "EventTarget", std::nullopt);
    auto const window = webidl::make_interface(engine, "Window", event_target);
    js_object const global = engine.global_object;
    auto window_host = std::make_shared<events::target_host>();
    window_host->target_class = "Window";
    window_host->target = host->host_js_window_object.window_events;
    global->obj_class = e::class_host_object{.host_object = window_host};
    global->obj_prototype = e::yes_proto{.proto = window.prototype};

    e::define_value(global, "window", global);
    e::define_value(global, "self", global, hidden);
    method(engine, event_target.prototype, "addEventListener",
           target_method{.method = events::event_target_method::add_event_listener}, 3);
    method(engine, event_target.prototype, "removeEventListener",
           target_method{.method = events::event_target_method::remove_event_listener}, 3);
    method(engine, event_target.prototype, "dispatchEvent",
           target_method{.method = events::event_target_method::dispatch_event}, 1);
    domjs::install_dom_interfaces(engine);

    auto const timeouts = host->host_js_window_object.window_timeouts;
    method(engine, global, "setTimeout", window_set_timeout{.timeouts = timeouts}, 2);
    method(engine, global, "clearTimeout", window_clear_timeout{.timeouts = timeouts}, 1);

    js_object const navigator = named_object(engine, "Navigator");
    e::attrs const fixed = e::attrs{}.with(e::attr::read_only).with(e::attr::no_delete);
    e::define_value(navigator, "appName", jsstring::from_utf8(settings.app_name), fixed);
    e::define_value(navigator, "appVersion", jsstring::from_utf8(settings.app_version), fixed);
    e::define_value(navigator, "platform", e::js_string{}, fixed);
    e::define_value(navigator, "userAgent", jsstring::from_utf8(settings.user_agent), fixed);
    e::define_value(navigator, "onLine", settings.online, fixed);
    e::define_value(global, "navigator", navigator, fixed.with(e::attr::no_enum));

    js_object const console = named_object(engine, "Console");
    method(engine, console, "log", console_log{}, 0);
    e::define_value(global, "console", console, hidden);

    js_object const log_object = named_object(engine, "Log");
    method(engine, log_object, "debug", log_message{.level = log::level::debug}, 0);
    method(engine, log_object, "info", log_message{.level = log::level::info}, 0);
    js_object const warning = method(engine, log_object, "warning", log_message{.level = log::level::warning}, 0);
    method(engine, log_object, "error", log_message{.level = log::level::error}, 0);
    method(engine, log_object, "data", log_data{}, 2);
    e::define_value(global, "Log", log_object, hidden);

    auto& vellum = host->host_js_vellum_object;
    auto vellum_host = std::make_shared<events::target_host>();
    vellum_host->target_class = "Vellum";
    vellum_host->target = vellum.vellum_events;
    vellum.vellum_object_ref =
        e::new_object_of(engine, e::class_host_object{.host_object = vellum_host}, e::yes_proto{.proto = event_target.prototype});
    js_object const v = vellum.vellum_object_ref;
    method(engine, v, "addScriptFunc", add_script_func{.funcs = vellum.vellum_script_funcs}, 2);
    e::define_own_property(
        v, e::key_of_utf8("trackBoxes"),
        e::prop_host{.host_getter = e::host_accessor{func_value(vellum_get_track_boxes{.track = vellum.vellum_track_boxes})},
                     .host_setter = e::host_accessor{func_value(vellum_set_track_boxes{.track = vellum.vellum_track_boxes})}},
        hidden);
    e::define_value(v, "Log", log_object, hidden);
    e::define_value(global, "Vellum", v, hidden);

    e::define_value(global, "alert", warning, hidden);
    return host;
}

std::optional<int> add_timeout(log::log const& log, window_timeouts& timeouts, timeout t) {
    if (!timeouts.timeouts_next_id) {
        log::log_warning(log, "setTimeout called too late");
        return std::nullopt;
    }
    int const id = (*timeouts.timeouts_next_id)++;
    auto& list = timeouts.timeouts_list;
    // The list stays ordered by delay; a new timer goes before those of equal delay, so of two equal
    // delays the later runs first.
    auto const at =
        std::ranges::lower_bound(list, t.timeout_delay, {}, [](auto const& p) { return p.second.timeout_delay; });
    list.insert(at, {id, std::move(t)});
    return id;
}

void clear_timeout(window_timeouts& timeouts, int id) {
    std::erase_if(timeouts.timeouts_list, [&](auto const& p) { return p.first == id; });
}

void run_timeouts(host_js& host) {
    auto& timeouts = *host.host_js_window_object.window_timeouts;
    e::js& engine = *host.js;
    timeouts.timeouts_next_id.reset();
    while (!timeouts.timeouts_list.empty()) {
        auto const head = std::move(timeouts.timeouts_list.front());
        timeouts.timeouts_list.erase(timeouts.timeouts_list.begin());
        auto r = std::visit(overloaded{
                                [&](timeout_func const& f) {
                                    return e::call(engine, engine.global_object, f.func_object, f.func_args);
                                },
                                [&](timeout_eval const& t) {
                                    return eval_global(host, resource::locator::resolve_locator({}, "about:blank"),
                                                       t.eval_source);
                                },
                            },
                            head.second.timeout_proc);
        if (auto const* x = std::get_if<e::exception>(&r)) {
            e::report_exception(engine, x->exception_value);
        }
    }
}

void fire_event(e::js& engine, js_object target, std::string const& type, std::optional<std::string> const& handler) {
    auto report = [&](e::expr_res<js_value> const& r) {
        if (auto const* x = std::get_if<e::exception>(&r)) {
            e::report_exception(engine, x->exception_value);
        }
    };
    auto dispatch = e::get(engine, target, e::key_of_utf8("dispatchEvent"));
    report(dispatch);
    js_object const event = e::new_object_of(engine, e::class_host_object{.host_object = std::make_shared<dom_event>()},
                                             e::yes_proto{.proto = engine.object_prototype});
    e::define_value(event, "type", jsstring::from_utf8(type));
    e::define_value(event, "target", target);
    if (auto const* f = std::get_if<js_value>(&dispatch); f && is_callable(*f)) {
        report(e::call(engine, target, *f, {event}));
    }
    if (handler) {
        auto h = e::get(engine, target, e::key_of_utf8(*handler));
        report(h);
        if (auto const* f = std::get_if<js_value>(&h); f && std::holds_alternative<js_object>(*f)) {
            report(e::call(engine, target, *f, {event}));
        }
    }
}

void report_script_error(log::log const& log, resource::locator::locator const& where, std::optional<int> line,
                         std::string const& message) {
    log::log_file_message(log, log::level::error, resource::locator::locator_to_string(where), message, line.value_or(0));
}

bool host_needed_later(host_js const& host) {
    auto const& v = host.host_js_vellum_object;
    return *v.vellum_track_boxes || events::has_listener(v.vellum_events, "complete") || !v.vellum_script_funcs->empty();
}

script_funcs get_script_funcs(host_js const& host) {
    return *host.host_js_vellum_object.vellum_script_funcs;
}

bool track_boxes(host_js const& host) {
    return *host.host_js_vellum_object.vellum_track_boxes;
}

std::optional<std::string> call_script_func(host_js& host, std::string const& name, std::vector<std::string> const& args) {
    e::js& engine = *host.js;
    auto const funcs = get_script_funcs(host);
    auto it = std::ranges::find_if(funcs, [&](auto const& p) { return p.first == name; });
    if (it == funcs.end()) {
        log::log_warning_once(engine.js_log, "unknown script function " + name + ", register with Vellum.addScriptFunc");
        return std::nullopt;
    }
    std::vector<js_value> values;
    for (auto const& a : args) {
        values.emplace_back(jsstring::from_utf8(a));
    }
    auto r = e::call(engine, engine.global_object, it->second, values);
    if (auto const* x = std::get_if<e::exception>(&r)) {
        e::report_exception(engine, x->exception_value);
        return std::nullopt;
    }
    auto text = e::to_string(engine, std::get<js_value>(r));
    if (auto const* x = std::get_if<e::exception>(&text)) {
        e::report_exception(engine, x->exception_value);
        return std::nullopt;
    }
    return jsstring::to_utf8(std::get<e::js_string>(text));
}

void fire_complete(host_js& host, int page_count) {
    e::js& engine = *host.js;
    js_object const v = host.host_js_vellum_object.vellum_object_ref;
    auto r = e::put(engine, v, e::key_of_utf8("pageCount"), js::number{std::int64_t{page_count}});
    if (auto const* x = std::get_if<e::exception>(&r)) {
        e::report_exception(engine, x->exception_value);
    }
    fire_event(engine, v, "complete", "oncomplete");
}

} // namespace vellum::hostjs
