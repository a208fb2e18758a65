// The one channel through which every part of a run reports: messages, progress stages, data records
// and the verdict, to the console (or the structured protocol) and an optional appended log file.
#pragma once

#include "util/cell.hpp"

#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vellum::log {

/// Severity of a message, in increasing order.
enum class level { debug, info, warning, error, abort };

/// How much gets through, in increasing order.
enum class verbosity { normal, verbose, debug };

/// The end-of-run verdict.
enum class finished { success, failure };

/// A message that comes from the program itself.
struct source_internal {
    bool operator==(source_internal const&) const = default;
};

/// A message about a file.
struct source_file {
    std::string source_name;
    bool operator==(source_file const&) const = default;
};

/// A message about a line of a file.
struct source_file_line {
    std::string source_name;
    int source_line = 0;
    bool operator==(source_file_line const&) const = default;
};

/// Where a message comes from.
using source = std::variant<source_internal, source_file, source_file_line>;

namespace lock {
/// Serialises the lines of one sink once more than one thread logs.
using lock = std::shared_ptr<std::mutex>;
} // namespace lock

namespace console_log {
/// Plain lines on standard error: "progname: file:line: warning: text".
struct console_log {
    std::string progname = "vellum";
    lock::lock lock;
    /// The stream written to; standard error except in tests.
    std::FILE* console_out = stderr;
};
} // namespace console_log

namespace file_log {
/// An appended log file with time-stamped lines.
struct file_log {
    std::shared_ptr<std::FILE> file_stream;
    lock::lock lock;
};
} // namespace file_log

namespace server_log {
/// The flavours of the structured protocol.
enum class server_log_type { server_log_normal, server_log_quiet, server_log_progress, server_log_buffered };

/// One message of the structured protocol: its fields, joined with "|" on output.
using server_msg = std::vector<std::string>;

/// The structured line protocol on standard error, for a controlling program.
struct server_log {
    server_log_type server_type = server_log_type::server_log_normal;
    /// Messages held back by the buffered flavour, newest first.
    std::shared_ptr<cell<std::vector<server_msg>>> buffer;
    lock::lock lock;
    /// The stream written to; standard error except in tests.
    std::FILE* server_out = stderr;
};
} // namespace server_log

/// No sink on standard error.
struct no_stderr_log {};

/// The sink on standard error.
using stderr_log = std::variant<no_stderr_log, console_log::console_log, server_log::server_log>;

/// The log value handed down through a run.
struct log {
    verbosity log_verbosity = verbosity::normal;
    std::optional<file_log::file_log> log_file;
    stderr_log log_stderr = console_log::console_log{};
    /// The warnings said once per run so far, shared by every copy of the log.
    std::shared_ptr<cell<std::set<std::string, std::less<>>>> log_said_once =
        std::make_shared<cell<std::set<std::string, std::less<>>>>();
};

/// A plain console log on standard error, as exists from the first moment of the process.
log console(std::string progname, verbosity v = verbosity::normal);

/// Opens (appending) a log file and writes its "---- begin" line; an error names the system's reason.
[[nodiscard]] std::optional<file_log::file_log> open_file_log(std::string const& path, std::string& error);

/// A structured log of the given flavour on standard error.
server_log::server_log make_server_log(server_log::server_log_type type);

/// The same log with a lock on each sink, for when further threads start logging.
log with_locks(log const& l);

/// Whether a message of this level passes the log's verbosity.
bool passes(log const& log, level lv);

/// Trims the text and replaces each LF and CR by two blanks, so that a message is one line.
std::string clean_text(std::string_view text);

/// The general entry: a message of a level from a source.
void log_message(log const& log, level lv, source const& src, std::string_view text);

void log_debug(log const& log, std::string_view text);
void log_info(log const& log, std::string_view text);
void log_warning(log const& log, std::string_view text);
void log_error(log const& log, std::string_view text);

/// A warning given at most once per run, however often its cause turns up (content of a kind that
/// cannot be laid out yet, say); the text itself is the key.
void log_warning_once(log const& log, std::string_view text);

/// A message about a file, or a line of it (line 0 means the file as a whole).
void log_file_message(log const& log, level lv, std::string_view file, std::string_view text, int line = 0);

/// A named stage such as "Loading document...".
void log_progress_stage(log const& log, std::string_view text);

/// Whether integer progress goes anywhere: only the progress flavour of the structured log shows it, so
/// that work spent on measuring progress can be skipped otherwise.
bool reports_progress(log const& log);

/// Integer progress for the structured log.
void log_progress_percent(log const& log, int percent);

/// A free key/value record of the structured log.
void log_data(log const& log, std::string_view key, std::string_view value);

/// A statistics line of the log file ("stats: ...").
void log_stats(log const& log, std::string_view text);

/// The verdict of the run, to every sink.
void log_finished(log const& log, finished verdict);

/// Writes "---- end" to the log file and closes it; sends out a buffered structured log.
void close_log(log const& log);

} // namespace vellum::log
