// The script host: the engine with the global object that document scripts see (a `Window` with
// `navigator`, `console`, `Log`, `Vellum`, timers and event target methods), timers ordered by delay with
// no waiting, events fired by the system, and the reporting of script failures.
#pragma once

// The loader first: the script engine's header declares its name ahead.
#include "resource/loader.hpp"
#include "driver/log.hpp"
#include "host/events.hpp"
#include "js/engine.hpp"
#include "js/value.hpp"
#include "resource/locator.hpp"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::hostjs {

using js::eval::js_object;
using js::eval::js_value;

/// A timer's function and arguments.
struct timeout_func {
    js_object func_object;
    std::vector<js_value> func_args;
};

/// A timer given as text, run as global code.
struct timeout_eval {
    js::eval::js_string eval_source;
};

using timeout_proc = std::variant<timeout_func, timeout_eval>;

/// A timer: what it runs and its delay, which only orders timers.
struct timeout {
    hostjs::timeout_proc timeout_proc;
    int timeout_delay = 0;
};

/// The timers of a window. The next id is empty once timers have begun to run; from then on
/// `setTimeout` only warns.
struct window_timeouts {
    std::optional<int> timeouts_next_id = 1;
    /// The timers in running order, each with its id.
    std::vector<std::pair<int, timeout>> timeouts_list;
};

/// The global object's own state.
struct window_object {
    events::event_target window_events = events::list_event_target{};
    std::shared_ptr<hostjs::window_timeouts> window_timeouts = std::make_shared<hostjs::window_timeouts>();
};

/// The functions scripts registered for CSS, by name, in order of registration.
using script_funcs = std::vector<std::pair<std::string, js_object>>;

/// The `Vellum` object and its state.
struct vellum_object {
    js_object vellum_object_ref;
    events::event_target vellum_events = events::list_event_target{};
    std::shared_ptr<hostjs::script_funcs> vellum_script_funcs = std::make_shared<hostjs::script_funcs>();
    std::shared_ptr<bool> vellum_track_boxes = std::make_shared<bool>(false);
};

/// What the host tells scripts about the program and the loader (`navigator`).
struct host_settings {
    std::string app_name = "Vellum";
    std::string app_version;
    std::string user_agent;
    bool online = true;
};

/// The engine of a document with its host objects. The engine owns every script object; the records
/// here hold handles into it.
struct host_js {
    std::unique_ptr<js::eval::js> js;
    window_object host_js_window_object;
    vellum_object host_js_vellum_object;
};

/// Scripts are off for the document.
struct host_js_disabled {};

/// Scripts ran, and nothing of theirs is needed later: the engine is gone.
struct host_js_unused {};

/// Scripts ran, and the engine stays for layout and the `complete` event.
struct host_js_used {
    std::shared_ptr<hostjs::host_js> host;
};

/// The state of scripting for a document.
using opt_host_js = std::variant<host_js_disabled, host_js_unused, host_js_used>;

/// Builds an engine, with the standard library and the compiler, and the host objects on its global
/// object.
std::shared_ptr<host_js> make_host(log::log const& log,
                                   std::shared_ptr<resource::loader::loader const> loader,
                                   host_settings const& settings);

/// `setTimeout` as the host runs it: a function or text, a delay, and the arguments for the function.
/// Nothing is stored (and "setTimeout called too late" is logged) once timers have begun to run.
std::optional<int> add_timeout(log::log const& log, window_timeouts& timeouts, timeout t);

/// Removes a timer by its id, if it is still waiting.
void clear_timeout(window_timeouts& timeouts, int id);

/// Runs the timers in order until none is left; from now on `setTimeout` only warns. Exceptions are
/// reported and the next timer runs.
void run_timeouts(host_js& host);

/// Fires an event at a target: calls its `dispatchEvent` with a new event of that type, then the handler
/// property, if named and an object. Exceptions are reported.
void fire_event(js::eval::js& engine, js_object target, std::string const& type,
                std::optional<std::string> const& handler = std::nullopt);

/// Logs a script that failed to parse, at error level with its file and line.
void report_script_error(log::log const& log, resource::locator::locator const& where, std::optional<int> line,
                         std::string const& message);

/// Parses and runs script text as global code; a parse failure is logged with its position, an uncaught
/// exception reported. False if either happened.
bool run_script(host_js& host, resource::locator::locator const& where, std::string_view source, int first_line = 1);

/// Evaluates text as global code and gives its completion value, or the thrown value (for the shell and
/// text timers).
[[nodiscard]] js::eval::expr_res<js_value> eval_global(host_js& host, resource::locator::locator const& where,
                                                       js::eval::js_string const& source);

/// Whether scripts left anything that layout or the end of the run needs: box tracking, a `complete`
/// listener or a registered script function.
bool host_needed_later(host_js const& host);

/// The functions registered with `Vellum.addScriptFunc`.
script_funcs get_script_funcs(host_js const& host);

/// Whether scripts asked for box tracking.
bool track_boxes(host_js const& host);

/// Calls the script function registered under a name with string arguments and gives its result as a
/// string; nothing (with the reason logged) if it is not registered or throws.
[[nodiscard]] std::optional<std::string> call_script_func(host_js& host, std::string const& name,
                                                          std::vector<std::string> const& args);

/// After the PDF is written: sets `Vellum.pageCount` and fires `complete` at `Vellum` with its
/// `oncomplete` handler.
void fire_complete(host_js& host, int page_count);

} // namespace vellum::hostjs
