#include "driver/log.hpp"

#include "util/ref.hpp"

#include <cerrno>
#include <cstring>
#include <ctime>

namespace vellum::log {

namespace {

// The words between the source and the text of a console line.
std::string_view console_level_word(level lv) {
    switch (lv) {
    case level::debug:
        return ": debug: ";
    case level::info:
        return ": ";
    case level::warning:
        return ": warning: ";
    case level::error:
        return ": error: ";
    case level::abort:
        return ": internal error: ";
    }
    return ": ";
}

// The level word of a file log line; an info line has none.
std::string_view file_level_word(level lv) {
    switch (lv) {
    case level::debug:
        return "debug: ";
    case level::info:
        return "";
    case level::warning:
        return "warning: ";
    case level::error:
        return "error: ";
    case level::abort:
        return "internal error: ";
    }
    return "";
}

// The level field of a structured "msg"; an abort goes out as an error.
std::string_view server_level_word(level lv) {
    switch (lv) {
    case level::debug:
        return "dbg";
    case level::info:
        return "inf";
    case level::warning:
        return "wrn";
    case level::error:
    case level::abort:
        return "err";
    }
    return "err";
}

// The source as a console line shows it after the program name: "", ": f" or ": f:12".
std::string console_source(source const& src) {
    return std::visit(overloaded{
                          [](source_internal const&) { return std::string(); },
                          [](source_file const& f) { return ": " + f.source_name; },
                          [](source_file_line const& f) {
                              return ": " + f.source_name + ":" + std::to_string(f.source_line);
                          },
                      },
                      src);
}

// The source field of a structured message: "", "f" or "f:12".
std::string server_source(source const& src) {
    return std::visit(overloaded{
                          [](source_internal const&) { return std::string(); },
                          [](source_file const& f) { return f.source_name; },
                          [](source_file_line const& f) {
                              return f.source_name + ":" + std::to_string(f.source_line);
                          },
                      },
                      src);
}

// Writes one whole line under the sink's lock, and flushes it at once.
void write_line(std::FILE* out, lock::lock const& lk, std::string const& line) {
    if (lk) {
        std::lock_guard guard(*lk);
        std::fwrite(line.data(), 1, line.size(), out);
        std::fflush(out);
    } else {
        std::fwrite(line.data(), 1, line.size(), out);
        std::fflush(out);
    }
}

// The local time in asctime's form without its newline, as "Sun Nov 15 06:24:31 2026".
std::string time_stamp() {
    std::time_t const now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    char buf[64];
    if (!asctime_r(&tm, buf)) {
        return "";
    }
    std::string s(buf);
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) {
        s.pop_back();
    }
    return s;
}

void file_line(file_log::file_log const& f, std::string_view body) {
    std::string line = time_stamp();
    line += ": ";
    line += body;
    line += '\n';
    write_line(f.file_stream.get(), f.lock, line);
}

// Sends one structured message, or holds it back in the buffered flavour.
void server_send(server_log::server_log const& s, server_log::server_msg msg) {
    if (s.server_type == server_log::server_log_type::server_log_buffered && s.buffer) {
        s.buffer->update([&](std::vector<server_log::server_msg>& held) {
            held.insert(held.begin(), std::move(msg));
        });
        return;
    }
    std::string line;
    for (std::size_t i = 0; i < msg.size(); ++i) {
        if (i) {
            line += '|';
        }
        line += msg[i];
    }
    line += '\n';
    write_line(s.server_out, s.lock, line);
}

bool is_quiet(server_log::server_log const& s) {
    return s.server_type == server_log::server_log_type::server_log_quiet;
}

bool shows_progress(server_log::server_log const& s) {
    return s.server_type == server_log::server_log_type::server_log_progress;
}

} // namespace

log console(std::string progname, verbosity v) {
    return {.log_verbosity = v, .log_stderr = console_log::console_log{.progname = std::move(progname)}};
}

std::optional<file_log::file_log> open_file_log(std::string const& path, std::string& error) {
    std::FILE* f = std::fopen(path.c_str(), "a");
    if (!f) {
        error = std::strerror(errno);
        return std::nullopt;
    }
    file_log::file_log fl{.file_stream = std::shared_ptr<std::FILE>(f, [](std::FILE* p) { std::fclose(p); })};
    write_line(f, nullptr, "---- begin\n");
    return fl;
}

server_log::server_log make_server_log(server_log::server_log_type type) {
    server_log::server_log s{.server_type = type};
    if (type == server_log::server_log_type::server_log_buffered) {
        s.buffer = std::make_shared<cell<std::vector<server_log::server_msg>>>();
    }
    return s;
}

void log_warning_once(log const& log, std::string_view text) {
    bool const fresh = !log.log_said_once || log.log_said_once->update([&](auto& said) {
        return said.emplace(text).second;
    });
    if (fresh) {
        log_warning(log, text);
    }
}

log with_locks(log const& l) {
    log out = l;
    if (out.log_file && !out.log_file->lock) {
        out.log_file->lock = std::make_shared<std::mutex>();
    }
    std::visit(overloaded{
                   [](no_stderr_log&) {},
                   [](console_log::console_log& c) {
                       if (!c.lock) {
                           c.lock = std::make_shared<std::mutex>();
                       }
                   },
                   [](server_log::server_log& s) {
                       if (!s.lock) {
                           s.lock = std::make_shared<std::mutex>();
                       }
                   },
               },
               out.log_stderr);
    return out;
}

bool passes(log const& log, level lv) {
    switch (log.log_verbosity) {
    case verbosity::normal:
        return lv >= level::warning;
    case verbosity::verbose:
        return lv >= level::info;
    case verbosity::debug:
        return true;
    }
    return true;
}

std::string clean_text(std::string_view text) {
    auto const is_space = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
    };
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_space(text.back())) {
        text.remove_suffix(1);
    }
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == '\n' || c == '\r') {
            out += "  ";
        } else {
            out += c;
        }
    }
    return out;
}

void log_message(log const& log, level lv, source const& src, std::string_view raw) {
    if (!passes(log, lv)) {
        return;
    }
    std::string const text = clean_text(raw);
    if (log.log_file) {
        std::string body;
        if (!std::holds_alternative<source_internal>(src)) {
            body = server_source(src) + ": ";
        }
        body += file_level_word(lv);
        body += text;
        file_line(*log.log_file, body);
    }
    std::visit(overloaded{
                   [](no_stderr_log const&) {},
                   [&](console_log::console_log const& c) {
                       std::string line = c.progname;
                       line += console_source(src);
                       line += console_level_word(lv);
                       line += text;
                       line += '\n';
                       write_line(c.console_out, c.lock, line);
                   },
                   [&](server_log::server_log const& s) {
                       if (!is_quiet(s)) {
                           server_send(s, {"msg", std::string(server_level_word(lv)), server_source(src), text});
                       }
                   },
               },
               log.log_stderr);
}

void log_debug(log const& log, std::string_view text) {
    log_message(log, level::debug, source_internal{}, text);
}

void log_info(log const& log, std::string_view text) {
    log_message(log, level::info, source_internal{}, text);
}

void log_warning(log const& log, std::string_view text) {
    log_message(log, level::warning, source_internal{}, text);
}

void log_error(log const& log, std::string_view text) {
    log_message(log, level::error, source_internal{}, text);
}

void log_file_message(log const& log, level lv, std::string_view file, std::string_view text, int line) {
    if (line > 0) {
        log_message(log, lv, source_file_line{std::string(file), line}, text);
    } else {
        log_message(log, lv, source_file{std::string(file)}, text);
    }
}

void log_progress_stage(log const& log, std::string_view raw) {
    std::string const text = clean_text(raw);
    bool const chatty = log.log_verbosity != verbosity::normal;
    if (log.log_file && chatty) {
        file_line(*log.log_file, text);
    }
    std::visit(overloaded{
                   [](no_stderr_log const&) {},
                   [&](console_log::console_log const& c) {
                       if (chatty) {
                           write_line(c.console_out, c.lock, c.progname + ": " + text + "\n");
                       }
                   },
                   [&](server_log::server_log const& s) {
                       if (shows_progress(s)) {
                           server_send(s, {"sta", text});
                       }
                   },
               },
               log.log_stderr);
}

bool reports_progress(log const& log) {
    auto const* s = std::get_if<server_log::server_log>(&log.log_stderr);
    return s && shows_progress(*s);
}

void log_progress_percent(log const& log, int percent) {
    if (auto const* s = std::get_if<server_log::server_log>(&log.log_stderr); s && shows_progress(*s)) {
        server_send(*s, {"prg", std::to_string(percent)});
    }
}

void log_data(log const& log, std::string_view key, std::string_view value) {
    if (auto const* s = std::get_if<server_log::server_log>(&log.log_stderr); s && !is_quiet(*s)) {
        server_send(*s, {"dat", clean_text(key), clean_text(value)});
    }
}

void log_stats(log const& log, std::string_view text) {
    if (log.log_file) {
        file_line(*log.log_file, "stats: " + clean_text(text));
    }
}

void log_finished(log const& log, finished verdict) {
    std::string_view const word = verdict == finished::success ? "success" : "failure";
    if (log.log_file) {
        file_line(*log.log_file, "finished: " + std::string(word));
    }
    std::visit(overloaded{
                   [](no_stderr_log const&) {},
                   [&](console_log::console_log const& c) {
                       if (log.log_verbosity != verbosity::normal) {
                           write_line(c.console_out, c.lock, c.progname + ": Finished: " +
                                                                 (verdict == finished::success ? "success"
                                                                                               : "failure") +
                                                                 "\n");
                       }
                   },
                   [&](server_log::server_log const& s) { server_send(s, {"fin", std::string(word)}); },
               },
               log.log_stderr);
}

void close_log(log const& log) {
    if (auto const* s = std::get_if<server_log::server_log>(&log.log_stderr); s && s->buffer) {
        // The buffer holds the newest message first; the protocol wants them in order.
        auto held = s->buffer->update([](std::vector<server_log::server_msg>& h) { return std::exchange(h, {}); });
        auto const direct = server_log::server_log{.server_type = server_log::server_log_type::server_log_normal,
                                                   .lock = s->lock,
                                                   .server_out = s->server_out};
        for (auto it = held.rbegin(); it != held.rend(); ++it) {
            server_send(direct, std::move(*it));
        }
    }
    if (log.log_file && log.log_file->file_stream) {
        write_line(log.log_file->file_stream.get(), log.log_file->lock, "---- end\n");
        std::fflush(log.log_file->file_stream.get());
    }
    std::fflush(stderr);
}

} // namespace vellum::log
