// The command line: a table-driven GNU-style option parser, and the one value that it turns the
// arguments into, with every value checked and every default applied. Nothing else reads the arguments.
#pragma once

#include "driver/engine_options.hpp"
#include "driver/job.hpp"
#include "driver/log.hpp"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vellum::options {

/// Every option of the table, in declaration order; the three `_value` members are the storage cells
/// behind the checked options and have no name of their own.
enum class option {
    help,
    credits,
    version,
    scanfonts,
    shell,
    write_grammar,
    debug,
    prefix,
    style,
    script,
    input,
    output,
    media,
    css_dpi_value,
    css_dpi,
    author_style,
    default_style,
    page_size,
    page_margin,
    input_list,
    baseurl,
    fileroot,
    xinclude,
    javascript,
    network,
    local_files,
    parallel_downloads,
    prefetch_threads,
    auth_method,
    auth_preemptive,
    auth,
    auth_user,
    auth_password,
    auth_server,
    auth_scheme,
    http_proxy,
    http_timeout,
    cookie,
    cookiejar,
    ssl_cacert,
    ssl_capath,
    ssl_blindly_trust_server,
    user_agent,
    log,
    verbose,
    silent,
    server,
    structured_log,
    embed_fonts,
    subset_fonts,
    system_fonts,
    artificial_fonts,
    compress,
    attach,
    producer,
    pdf_id,
    pdf_output_intent,
    pdf_profile,
    pdf_profile_value,
    pdf_title,
    pdf_subject,
    pdf_author,
    pdf_keywords,
    pdf_creator,
    encrypt,
    key_bits_value,
    key_bits,
    user_password,
    owner_password,
    disallow_print,
    disallow_copy,
    disallow_annotate,
    disallow_modify,
    max_resource_size,
};

/// Plain lines on standard error.
struct stderr_log {
    bool operator==(stderr_log const&) const = default;
};

/// Messages appended to a file.
struct file_log {
    std::string log_path;
    bool operator==(file_log const&) const = default;
};

/// The structured protocol on standard error, with an optional log file beside it.
struct server_log {
    log::server_log::server_log_type server_type = log::server_log::server_log_type::server_log_normal;
    std::optional<std::string> server_log_file;
    bool operator==(server_log const&) const = default;
};

/// Where the log goes.
using log_type = std::variant<stderr_log, file_log, server_log>;

/// How the real log of a run is built.
struct log_options {
    options::log_type log_type = stderr_log{};
    log::verbosity log_verbosity = log::verbosity::normal;
    bool operator==(log_options const&) const = default;
};

/// Print the version.
struct version {
    bool operator==(version const&) const = default;
};

/// Scan font files and print @font-face rules for them.
struct scanfonts {
    std::vector<std::string> scanfonts_files;
    bool operator==(scanfonts const&) const = default;
};

/// An interactive script shell, running the files first.
struct shell {
    std::vector<std::string> shell_files;
    bool operator==(shell const&) const = default;
};

/// Print the script grammar.
struct write_grammar {
    bool operator==(write_grammar const&) const = default;
};

/// Convert documents to a PDF.
struct job_command {
    job::job command_job;
    bool operator==(job_command const&) const = default;
};

/// What a run does once its log and engine are set up.
using command = std::variant<version, scanfonts, shell, write_grammar, job_command>;

/// Print the usage and the option help.
struct help {
    bool operator==(help const&) const = default;
};

/// Print the library acknowledgements.
struct credits {
    bool operator==(credits const&) const = default;
};

/// Run a command.
struct run_command {
    options::log_options log_options;
    engine::engine_options engine_options;
    options::command command;
    bool operator==(run_command const&) const = default;
};

/// File arguments that could not be read as a job: show the usage.
struct unknown {
    std::vector<std::string> unknown_args;
    bool operator==(unknown const&) const = default;
};

/// An input list could not be read; the reason is already logged.
struct input_list_failed {
    bool operator==(input_list_failed const&) const = default;
};

/// A message for the user.
struct error {
    std::string error_text;
    bool operator==(error const&) const = default;
};

/// What the command line asks for.
using options = std::variant<help, credits, run_command, unknown, input_list_failed, error>;

/// Parses the arguments (without the program name). `program_dir` is the directory the program was
/// started from (empty if none), `curdir` the working directory. Warnings about values go to the log.
[[nodiscard]] options parse_options(log::log const& log, std::vector<std::string> const& args,
                                    std::string const& program_dir, std::string const& curdir);

/// The output name for a single input path: "doc.html" gives "doc.pdf", "doc.pdf" gives "doc.pdf.pdf".
std::string output_name(std::string const& input_path);

/// The file names of an input list: one a line, a leading U+FEFF dropped, trimmed, empty lines skipped.
std::vector<std::string> input_list_names(std::string_view text);

/// The installation root: --prefix if given, else the parent of the program's directory.
std::string prefix_of(std::optional<std::string> const& prefix_option, std::string const& program_dir);

} // namespace vellum::options
