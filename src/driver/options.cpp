#include "driver/options.hpp"

#include "pdf/profile.hpp"
#include "util/ref.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <sys/stat.h>

#ifndef VELLUM_VERSION
#define VELLUM_VERSION "unknown"
#endif

namespace vellum::options {
namespace {

using resource::locator::locator;
using resource::locator::locator_origin;
using resource::locator::path_or_url;

/// How an option takes its value.
enum class value_kind {
    /// A switch, with the negation "--no-name".
    flag,
    /// A text; the option needs an argument.
    text,
    /// A whole number; the option needs a numeric argument.
    number,
    /// Each use adds a text to a list.
    repeatable,
};

/// One row of the option table.
struct option_spec {
    option id;
    std::vector<std::string_view> long_names;
    char short_name = 0;
    value_kind kind = value_kind::flag;
    /// The default of a switch.
    bool default_flag = false;
    /// The default of a text or number; absent for none.
    std::optional<std::string_view> default_value;
    /// Where a checked option stores its value once its handler has accepted it.
    std::optional<option> checked_cell;
};

// The table of options, in the order of the enumeration. The `_value` cells have no row.
std::vector<option_spec> const& option_table() {
    static std::vector<option_spec> const table{
        {option::help, {"help"}, 'h'},
        {option::credits, {"credits"}},
        {option::version, {"version"}},
        {option::scanfonts, {"scanfonts"}},
        {option::shell, {"shell"}},
        {option::write_grammar, {"write-grammar"}},
        {option::debug, {"debug"}},
        {option::prefix, {"prefix"}, 0, value_kind::text},
        {option::style, {"style"}, 's', value_kind::repeatable},
        {option::script, {"script"}, 0, value_kind::repeatable},
        {option::input, {"input"}, 'i', value_kind::text, false, "auto"},
        {option::output, {"output"}, 'o', value_kind::text},
        {option::media, {"media"}, 0, value_kind::text, false, "print"},
        {option::css_dpi, {"css-dpi"}, 0, value_kind::number, false, "96", option::css_dpi_value},
        {option::author_style, {"author-style"}, 0, value_kind::flag, true},
        {option::default_style, {"default-style"}, 0, value_kind::flag, true},
        {option::page_size, {"page-size"}, 0, value_kind::text},
        {option::page_margin, {"page-margin"}, 0, value_kind::text},
        {option::input_list, {"input-list"}, 'l', value_kind::repeatable},
        {option::baseurl, {"baseurl"}, 0, value_kind::text},
        {option::fileroot, {"fileroot"}, 0, value_kind::text},
        {option::xinclude, {"xinclude"}, 0, value_kind::flag, true},
        {option::javascript, {"javascript"}},
        {option::network, {"network"}, 0, value_kind::flag, true},
        {option::local_files, {"local-files"}, 0, value_kind::flag, true},
        {option::parallel_downloads, {"parallel-downloads"}, 0, value_kind::flag, true},
        {option::prefetch_threads, {"prefetch-threads"}, 0, value_kind::number, false, "6"},
        {option::auth_method, {"auth-method"}, 0, value_kind::text, false, "basic"},
        {option::auth_preemptive, {"auth-preemptive"}, 0, value_kind::flag, true},
        {option::auth, {"auth"}, 0, value_kind::repeatable},
        {option::auth_user, {"auth-user", "http-user"}, 0, value_kind::text},
        {option::auth_password, {"auth-password", "http-password"}, 0, value_kind::text},
        {option::auth_server, {"auth-server"}, 0, value_kind::text},
        {option::auth_scheme, {"auth-scheme"}, 0, value_kind::text},
        {option::http_proxy, {"http-proxy"}, 0, value_kind::text},
        {option::http_timeout, {"http-timeout"}, 0, value_kind::number, false, "60"},
        {option::cookie, {"cookie"}, 0, value_kind::repeatable},
        {option::cookiejar, {"cookiejar"}, 0, value_kind::text},
        {option::ssl_cacert, {"ssl-cacert", "ssl-ca-cert"}, 0, value_kind::text},
        {option::ssl_capath, {"ssl-capath"}, 0, value_kind::text},
        {option::ssl_blindly_trust_server, {"insecure", "ssl-blindly-trust-server"}},
        {option::user_agent, {"user-agent"}, 0, value_kind::text},
        {option::log, {"log"}, 0, value_kind::text},
        {option::verbose, {"verbose"}, 'v'},
        {option::silent, {"silent"}},
        {option::server, {"server"}},
        {option::structured_log, {"structured-log"}, 0, value_kind::text},
        {option::embed_fonts, {"embed-fonts"}, 0, value_kind::flag, true},
        {option::subset_fonts, {"subset-fonts"}, 0, value_kind::flag, true},
        {option::system_fonts, {"system-fonts"}, 0, value_kind::flag, true},
        {option::artificial_fonts, {"artificial-fonts"}, 0, value_kind::flag, true},
        {option::compress, {"compress"}, 0, value_kind::flag, true},
        {option::attach, {"attach"}, 0, value_kind::repeatable},
        {option::producer, {"producer"}, 0, value_kind::flag, true},
        {option::pdf_id, {"pdf-id"}, 0, value_kind::text},
        {option::pdf_output_intent, {"pdf-output-intent"}, 0, value_kind::text},
        {option::pdf_profile, {"pdf-profile", "profile"}, 0, value_kind::text, false, std::nullopt,
         option::pdf_profile_value},
        {option::pdf_title, {"pdf-title"}, 0, value_kind::text},
        {option::pdf_subject, {"pdf-subject"}, 0, value_kind::text},
        {option::pdf_author, {"pdf-author"}, 0, value_kind::text},
        {option::pdf_keywords, {"pdf-keywords"}, 0, value_kind::text},
        {option::pdf_creator, {"pdf-creator"}, 0, value_kind::text},
        {option::encrypt, {"encrypt"}},
        {option::key_bits, {"key-bits"}, 0, value_kind::number, false, "40", option::key_bits_value},
        {option::user_password, {"user-password"}, 0, value_kind::text},
        {option::owner_password, {"owner-password"}, 0, value_kind::text},
        {option::disallow_print, {"disallow-print"}},
        {option::disallow_copy, {"disallow-copy"}},
        {option::disallow_annotate, {"disallow-annotate"}},
        {option::disallow_modify, {"disallow-modify"}},
        {option::max_resource_size, {"max-resource-size"}, 0, value_kind::text},
    };
    return table;
}

/// The values the parser has gathered, by option; what is missing takes the table's default.
struct values {
    std::map<option, bool> flags;
    std::map<option, std::string> texts;
    std::map<option, int> numbers;
    std::map<option, std::vector<std::string>> lists;
};

// The row of an option; a `_value` cell takes the row of the checked option it belongs to.
option_spec const& spec_of(option id) {
    for (auto const& s : option_table()) {
        if (s.id == id || s.checked_cell == id) {
            return s;
        }
    }
    throw internal_error("option_spec: unexpected condition.");
}

bool flag(values const& v, option id) {
    auto it = v.flags.find(id);
    return it != v.flags.end() ? it->second : spec_of(id).default_flag;
}

std::optional<std::string> text(values const& v, option id) {
    if (auto it = v.texts.find(id); it != v.texts.end()) {
        return it->second;
    }
    if (auto const d = spec_of(id).default_value) {
        return std::string(*d);
    }
    return std::nullopt;
}

std::optional<int> given_number(values const& v, option id) {
    if (auto it = v.numbers.find(id); it != v.numbers.end()) {
        return it->second;
    }
    return std::nullopt;
}

int number(values const& v, option id) {
    if (auto n = given_number(v, id)) {
        return *n;
    }
    auto const d = spec_of(id).default_value;
    check(d.has_value(), "option_number");
    return std::stoi(std::string(*d));
}

std::vector<std::string> list(values const& v, option id) {
    auto it = v.lists.find(id);
    return it != v.lists.end() ? it->second : std::vector<std::string>{};
}

std::optional<int> parse_int(std::string_view s) {
    int value = 0;
    auto const* end = s.data() + s.size();
    auto [p, ec] = std::from_chars(s.data(), end, value);
    if (s.empty() || ec != std::errc() || p != end) {
        return std::nullopt;
    }
    return value;
}

// A size in bytes, with an optional suffix "K", "M" or "G" (binary multiples): "1048576", "512M". Zero
// and sizes that overflow are not sizes.
std::optional<std::uint64_t> parse_size(std::string_view s) {
    int shift = 0;
    if (!s.empty()) {
        char const last = s.back();
        shift = last == 'k' || last == 'K' ? 10 : last == 'm' || last == 'M' ? 20 : last == 'g' || last == 'G' ? 30 : 0;
    }
    if (shift != 0) {
        s.remove_suffix(1);
    }
    std::uint64_t value = 0;
    auto const* end = s.data() + s.size();
    auto [p, ec] = std::from_chars(s.data(), end, value);
    if (s.empty() || ec != std::errc() || p != end || value == 0 || value > (UINT64_MAX >> shift)) {
        return std::nullopt;
    }
    return value << shift;
}

std::string quoted(std::string_view name) {
    return "`" + std::string(name) + "'";
}

/// The parser's state over the argument list.
struct parser {
    std::vector<std::string> const& args;
    std::size_t next = 0;
    values v;
    std::vector<std::string> files;
    /// `--log` took its value from the next argument rather than after "=".
    bool log_from_next = false;

    // Stores a value, through the handler of a checked option. Returns an error message on failure.
    std::optional<std::string> store(option_spec const& spec, std::string_view shown, std::string_view value) {
        switch (spec.kind) {
        case value_kind::flag:
            return "option " + quoted(shown) + " does not allow an argument";
        case value_kind::text:
            if (spec.id == option::max_resource_size && !parse_size(value)) {
                return "invalid value for option `--max-resource-size'";
            }
            if (spec.id == option::pdf_profile) {
                if (!pdf::profile::profile_of_name(value)) {
                    return "invalid value for option `--pdf-profile'";
                }
                v.texts[*spec.checked_cell] = std::string(value);
            }
            v.texts[spec.id] = std::string(value);
            return std::nullopt;
        case value_kind::number: {
            auto n = parse_int(value);
            if (!n) {
                return "option " + quoted(shown) + " requires a numeric argument; " + quoted(value);
            }
            if (spec.id == option::css_dpi && *n < 1) {
                return "invalid value for option `--css-dpi'";
            }
            if (spec.id == option::key_bits && *n != 40 && *n != 128) {
                return "invalid value for option `--key-bits'";
            }
            if (spec.checked_cell) {
                v.numbers[*spec.checked_cell] = *n;
            }
            v.numbers[spec.id] = *n;
            return std::nullopt;
        }
        case value_kind::repeatable:
            v.lists[spec.id].emplace_back(value);
            return std::nullopt;
        }
        return std::nullopt;
    }

    // A long option, without its leading "--".
    std::optional<std::string> long_option(std::string_view body) {
        auto const eq = body.find('=');
        std::string_view const name = body.substr(0, eq);
        std::string const shown = "--" + std::string(name);
        auto find = [](std::string_view n) -> option_spec const* {
            for (auto const& s : option_table()) {
                if (std::find(s.long_names.begin(), s.long_names.end(), n) != s.long_names.end()) {
                    return &s;
                }
            }
            return nullptr;
        };
        option_spec const* spec = find(name);
        bool negated = false;
        if (!spec && name.starts_with("no-")) {
            spec = find(name.substr(3));
            negated = spec != nullptr;
        }
        if (!spec) {
            return "unrecognized option " + quoted(shown);
        }
        if (negated) {
            if (spec->kind != value_kind::flag) {
                return "cannot negate option " + quoted("--" + std::string(name.substr(3)));
            }
            if (eq != std::string_view::npos) {
                return "option " + quoted(shown) + " does not allow an argument";
            }
            v.flags[spec->id] = false;
            return std::nullopt;
        }
        if (spec->kind == value_kind::flag) {
            if (eq != std::string_view::npos) {
                return "option " + quoted(shown) + " does not allow an argument";
            }
            v.flags[spec->id] = true;
            return std::nullopt;
        }
        if (eq != std::string_view::npos) {
            return store(*spec, shown, body.substr(eq + 1));
        }
        // The value is the next argument, whatever it looks like.
        if (next >= args.size()) {
            return "option " + quoted(shown) + " needs an argument";
        }
        log_from_next = log_from_next || spec->id == option::log;
        return store(*spec, shown, args[next++]);
    }

    // A bundle of short options, without its leading "-": "-vo out.pdf", "-ohtml.pdf".
    std::optional<std::string> short_options(std::string_view bundle) {
        for (std::size_t i = 0; i < bundle.size(); ++i) {
            std::string const shown = std::string("-") + bundle[i];
            auto const& table = option_table();
            auto it = std::find_if(table.begin(), table.end(),
                                   [&](option_spec const& s) { return s.short_name == bundle[i]; });
            if (it == table.end()) {
                return "unrecognized option " + quoted(shown);
            }
            if (it->kind == value_kind::flag) {
                v.flags[it->id] = true;
                continue;
            }
            // The rest of the bundle is the value, or else the next argument.
            if (i + 1 < bundle.size()) {
                return store(*it, shown, bundle.substr(i + 1));
            }
            if (next >= args.size()) {
                return "option " + quoted(shown) + " needs an argument";
            }
            return store(*it, shown, args[next++]);
        }
        return std::nullopt;
    }

    std::optional<std::string> run() {
        bool options_ended = false;
        while (next < args.size()) {
            std::string const& a = args[next++];
            if (options_ended || a == "-" || !a.starts_with("-")) {
                files.push_back(a);
            } else if (a == "--") {
                options_ended = true;
            } else if (a.starts_with("--")) {
                if (auto e = long_option(std::string_view(a).substr(2))) {
                    return e;
                }
            } else if (auto e = short_options(std::string_view(a).substr(1))) {
                return e;
            }
        }
        return std::nullopt;
    }
};

std::string to_lower(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return s;
}

std::optional<doctype::doctype> doctype_of_input(std::string const& input) {
    std::string const format = to_lower(input);
    if (format == "auto") {
        return std::nullopt;
    }
    if (format == "html4" || format == "html-old") {
        return doctype::doctype::html4;
    }
    static constexpr std::array<std::string_view, 4> html5_names{"htm", "html", "html-new", "html5"};
    if (std::binary_search(html5_names.begin(), html5_names.end(), std::string_view(format))) {
        return doctype::doctype::html5;
    }
    // Any other word is read as XML, with no complaint.
    return doctype::doctype::xml;
}

log_options make_log_options(log::log const& log, values const& v) {
    using log::server_log::server_log_type;
    log_options lo;
    lo.log_verbosity = flag(v, option::debug)     ? log::verbosity::debug
                       : flag(v, option::verbose) ? log::verbosity::verbose
                                                  : log::verbosity::normal;
    auto const log_file = text(v, option::log);
    if (flag(v, option::server)) {
        lo.log_type = server_log{flag(v, option::silent) ? server_log_type::server_log_quiet
                                                         : server_log_type::server_log_progress,
                                 log_file};
    } else if (auto const structured = text(v, option::structured_log)) {
        static std::map<std::string, server_log_type> const kinds{
            {"normal", server_log_type::server_log_normal},
            {"quiet", server_log_type::server_log_quiet},
            {"progress", server_log_type::server_log_progress},
            {"buffered", server_log_type::server_log_buffered},
        };
        if (auto it = kinds.find(*structured); it != kinds.end()) {
            lo.log_type = server_log{it->second, log_file};
        } else {
            log::log_warning(log, "unknown value for --structured-log: " + *structured);
            lo.log_type = stderr_log{};
        }
    } else if (log_file) {
        lo.log_type = file_log{*log_file};
    }
    return lo;
}

std::set<http::http_auth_method> auth_methods(log::log const& log, std::string const& methods) {
    static std::map<std::string, http::http_auth_method> const names{
        {"basic", http::http_auth_method::basic},
        {"digest", http::http_auth_method::digest},
        {"ntlm", http::http_auth_method::ntlm},
        {"negotiate", http::http_auth_method::negotiate},
    };
    std::set<http::http_auth_method> out;
    std::stringstream pieces(methods);
    std::string piece;
    while (std::getline(pieces, piece, ',')) {
        if (piece.empty()) {
            continue;
        }
        if (auto it = names.find(to_lower(piece)); it != names.end()) {
            out.insert(it->second);
        } else {
            log::log_warning(log, "unrecognised --auth-method: " + piece);
        }
    }
    return out;
}

std::string decoded_userinfo(std::string const& s) {
    return url::percent_decode(url::decode_mode::decode_mode_component, s).value_or(s);
}

// One --auth value: "[scheme:]//user:pass@host[:port]" gives a pattern for that server.
std::optional<std::pair<http::auth_pattern, http::userpwd>> auth_of_url(log::log const& log,
                                                                        std::string text) {
    if (!text.starts_with("//") && !text.starts_with("http:") && !text.starts_with("https:")) {
        text = "//" + text;
    }
    auto parsed = urlspec::parse_url(urlspec::no_base_keep_leading_dot_dots{}, text);
    if (auto const* f = std::get_if<urlspec::fatal_error>(&parsed.parse_result)) {
        log::log_warning(log, "--auth option ignored: " + f->message);
        return std::nullopt;
    }
    auto const& [u, data_part] = std::get<urlspec::ok>(parsed.parse_result);
    if (data_part) {
        log::log_warning(log, "--auth option ignored");
        return std::nullopt;
    }
    if (!u.host) {
        log::log_warning(log, "--auth option is missing host");
        return std::nullopt;
    }
    if (!u.scheme.empty() && u.scheme != "http" && u.scheme != "https") {
        log::log_warning(log, "--auth option has unsupported scheme");
        return std::nullopt;
    }
    http::auth_pattern pattern{.pat_host = u.host};
    if (!u.scheme.empty()) {
        pattern.pat_scheme = u.scheme;
    }
    if (!u.port.empty()) {
        pattern.pat_port = u.port;
    } else if (!u.scheme.empty()) {
        pattern.pat_port = urlspec::default_port(u.scheme);
    }
    http::userpwd credentials{decoded_userinfo(u.username), decoded_userinfo(u.password.value_or(""))};
    bool const has_path =
        !u.path_segments.empty() && !(u.path_segments.size() == 1 && u.path_segments[0].empty());
    if (has_path) {
        log::log_warning(log, "path ignored in --auth option");
    }
    if (u.query) {
        log::log_warning(log, "query ignored in --auth option");
    }
    if (u.fragment) {
        log::log_warning(log, "fragment ignored in --auth option");
    }
    return std::pair{pattern, credentials};
}

// The pattern of --auth-user and --auth-password, limited by --auth-scheme and --auth-server.
std::optional<std::pair<http::auth_pattern, http::userpwd>> auth_of_user(log::log const& log, values const& v) {
    http::auth_pattern pattern;
    if (auto const scheme = text(v, option::auth_scheme)) {
        if (*scheme != "http" && *scheme != "https") {
            log::log_warning(log, "--auth-scheme option has unsupported scheme");
            return std::nullopt;
        }
        pattern.pat_scheme = *scheme;
    }
    if (auto const server = text(v, option::auth_server)) {
        std::vector<std::string> parts;
        std::stringstream in(*server);
        std::string part;
        while (std::getline(in, part, ':')) {
            parts.push_back(part);
        }
        if (!server->empty() && server->back() == ':') {
            parts.emplace_back();
        }
        bool valid = parts.size() == 1 || parts.size() == 2;
        if (valid) {
            auto h = host::parse_host(parts[0]);
            valid = std::holds_alternative<host::host>(h);
            if (valid) {
                pattern.pat_host = std::get<host::host>(h);
            }
        }
        if (valid && parts.size() == 2) {
            auto const n = parse_int(parts[1]);
            valid = n && *n >= 0 && *n <= 65535 &&
                    std::all_of(parts[1].begin(), parts[1].end(), [](char c) { return c >= '0' && c <= '9'; });
            if (valid) {
                pattern.pat_port = std::to_string(*n);
            }
        }
        if (!valid) {
            log::log_warning(log, "--auth-server value is invalid");
            return std::nullopt;
        }
    }
    return std::pair{pattern, http::userpwd{text(v, option::auth_user).value_or(""),
                                            text(v, option::auth_password).value_or("")}};
}

http::http_options make_http_options(log::log const& log, values const& v, std::string const& prefix) {
    http::http_options h;
    h.http_auth_methods = auth_methods(log, *text(v, option::auth_method));
    h.http_auth_preemptive = flag(v, option::auth_preemptive);
    // Each pattern goes to the head of the list, which is reversed at the end.
    std::vector<std::pair<http::auth_pattern, http::userpwd>> patterns;
    for (auto const& a : list(v, option::auth)) {
        if (auto p = auth_of_url(log, a)) {
            patterns.insert(patterns.begin(), *p);
        }
    }
    if (text(v, option::auth_user) || text(v, option::auth_password)) {
        if (auto p = auth_of_user(log, v)) {
            patterns.insert(patterns.begin(), *p);
        }
    }
    std::reverse(patterns.begin(), patterns.end());
    h.auth_patterns = std::move(patterns);
    h.http_proxy = text(v, option::http_proxy);
    int const timeout = number(v, option::http_timeout);
    h.http_timeout = timeout < 1 ? std::nullopt : std::optional<int>(timeout);
    h.cookies = list(v, option::cookie);
    h.cookiejar = text(v, option::cookiejar);
    h.ssl_cacert = text(v, option::ssl_cacert).value_or(prefix + "/etc/curl-ca-bundle.crt");
    h.ssl_capath = text(v, option::ssl_capath);
    h.ssl_blindly_trust_server = flag(v, option::ssl_blindly_trust_server);
    h.user_agent = text(v, option::user_agent).value_or(std::string("Vellum/") + VELLUM_VERSION +
                                                        " (https://vellum-print.org/)");
    int const threads = number(v, option::prefetch_threads);
    h.max_prefetch_threads = flag(v, option::parallel_downloads) && threads > 0 ? std::min(threads, 16) : 0;
    return h;
}

engine::engine_options make_engine_options(log::log const& log, values const& v, std::string const& program_dir,
                                           std::string const& curdir) {
    std::string const prefix = prefix_of(text(v, option::prefix), program_dir);
    return engine::engine_options{
        .prefix = {prefix},
        .curdir = {curdir},
        .loader_options =
            {
                .network = flag(v, option::network),
                .http_options = make_http_options(log, v, prefix),
                .local_files = flag(v, option::local_files),
                // Pages from the web may name local files only when the command line says so expressly.
                .local_files_for_web = v.flags.contains(option::local_files) && flag(v, option::local_files),
                .max_resource_size = text(v, option::max_resource_size)
                                         .and_then(parse_size)
                                         .value_or(resource::loader::default_max_resource_size),
                .fileroot = text(v, option::fileroot),
            },
        .system_fonts = flag(v, option::system_fonts),
        .css_dpi = number(v, option::css_dpi_value),
    };
}

locator command_line_locator(std::string_view name) {
    return resource::locator::parse_locator(path_or_url::path_or_url, locator_origin::command_line_origin,
                                            std::nullopt, name);
}

dom::doc_style_info make_style_info(values const& v) {
    dom::doc_style_info info{.media = *text(v, option::media)};
    for (auto const& s : list(v, option::style)) {
        info.user_style_sheets.push_back(command_line_locator(s));
    }
    for (auto const& s : list(v, option::script)) {
        info.user_scripts.push_back(command_line_locator(s));
    }
    // FIXME: parse these as CSS values once the value parser exists (see dom::pending_page_decl).
    if (auto const margin = text(v, option::page_margin)) {
        info.page_pdecls.push_back({dom::page_decl_kind::margin, *margin});
    }
    if (auto const size = text(v, option::page_size)) {
        info.page_pdecls.push_back({dom::page_decl_kind::size, *size});
    }
    info.use_default_style = flag(v, option::default_style);
    info.use_author_style = flag(v, option::author_style);
    info.use_author_scripts = flag(v, option::javascript);
    return info;
}

vellum::metadata::metadata make_metadata(values const& v) {
    return vellum::metadata::metadata{
        .title = text(v, option::pdf_title),
        .subject = text(v, option::pdf_subject),
        .author = text(v, option::pdf_author),
        .keywords = vellum::metadata::split_keywords(text(v, option::pdf_keywords).value_or("")),
        .creator = text(v, option::pdf_creator),
    };
}

vellum::metadata::pdf_options make_pdf_options(values const& v) {
    vellum::metadata::pdf_options p;
    p.embed_fonts = flag(v, option::embed_fonts);
    p.subset_fonts = flag(v, option::subset_fonts);
    p.artificial_fonts = flag(v, option::artificial_fonts);
    p.compress = flag(v, option::compress);
    p.encrypt_info = vellum::metadata::encrypt{
        .key_bits = {number(v, option::key_bits_value)},
        .user_password = text(v, option::user_password),
        .owner_password = text(v, option::owner_password),
        .permissions =
            {
                .can_print = !flag(v, option::disallow_print),
                .can_modify = !flag(v, option::disallow_modify),
                .can_copy = !flag(v, option::disallow_copy),
                .can_annotate = !flag(v, option::disallow_annotate),
            },
    };
    // Asking for a password or taking away a permission only makes sense in an encrypted file.
    p.encrypt = flag(v, option::encrypt) || p.encrypt_info.user_password || p.encrypt_info.owner_password ||
                flag(v, option::disallow_print) || flag(v, option::disallow_copy) ||
                flag(v, option::disallow_annotate) || flag(v, option::disallow_modify);
    for (auto const& a : list(v, option::attach)) {
        p.attach.push_back({command_line_locator(a), ""});
    }
    p.producer = flag(v, option::producer) ? std::optional<std::string>(vellum::metadata::default_producer(VELLUM_VERSION))
                                           : std::nullopt;
    p.pdf_id = text(v, option::pdf_id);
    if (auto const intent = text(v, option::pdf_output_intent)) {
        p.pdf_output_intent = command_line_locator(*intent);
    }
    if (auto const profile = text(v, option::pdf_profile_value)) {
        p.pdf_profile = pdf::profile::profile_of_name(*profile);
    }
    return p;
}

job::output_dest output_dest_of(std::string const& name) {
    if (name == "-") {
        return job::standard_output{};
    }
    return job::file{{name}};
}

job::job make_job(values const& v, std::vector<locator> const& inputs, job::output_dest dest) {
    dom::doc_style_info const style_info = make_style_info(v);
    std::optional<locator> base;
    if (auto const b = text(v, option::baseurl)) {
        base = command_line_locator(*b);
    }
    job::job j{.output_dest = std::move(dest), .metadata = make_metadata(v), .pdf_options = make_pdf_options(v)};
    for (auto const& src : inputs) {
        j.input_documents.push_back(job::input_document{
            .input_doctype = doctype_of_input(*text(v, option::input)),
            .input_base = base,
            .input_src = src,
            .style_info = style_info,
            .xml_options = {.use_xinclude = flag(v, option::xinclude) ? xml::use_xinclude::yes : xml::use_xinclude::no,
                            .load_dtd = xml::load_dtd::yes},
        });
    }
    return j;
}

std::string join_path(std::string const& dir, std::string const& name) {
    if (name.starts_with("/") || dir.empty()) {
        return name;
    }
    return dir + "/" + name;
}

// Reads the input lists in turn; nothing if one cannot be read, with the reason logged.
std::optional<std::vector<std::string>> read_input_lists(log::log const& log, std::vector<std::string> const& lists,
                                                         std::string const& curdir) {
    std::vector<std::string> names;
    for (auto const& list_file : lists) {
        std::ifstream in(join_path(curdir, list_file), std::ios::binary);
        if (!in) {
            log::log_file_message(log, log::level::error, list_file, std::strerror(errno));
            return std::nullopt;
        }
        std::stringstream content;
        content << in.rdbuf();
        if (in.bad()) {
            log::log_file_message(log, log::level::error, list_file, "error reading file");
            return std::nullopt;
        }
        auto more = input_list_names(content.str());
        names.insert(names.end(), more.begin(), more.end());
    }
    return names;
}

bool ends_with_pdf(std::string const& name) {
    return to_lower(name).ends_with(".pdf");
}

} // namespace

std::string output_name(std::string const& input_path) {
    auto const dot = input_path.rfind('.');
    if (dot == std::string::npos) {
        return input_path + ".pdf";
    }
    // The search for the full stop does not stop at a slash, so "dir.d/file" gives "dir.pdf".
    std::string out = dot == 0 ? input_path.substr(1) + ".pdf" : input_path.substr(0, dot) + ".pdf";
    if (out == input_path) {
        out += ".pdf";
    }
    return out;
}

std::vector<std::string> input_list_names(std::string_view text) {
    auto is_space = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; };
    std::vector<std::string> names;
    while (!text.empty()) {
        auto const nl = text.find('\n');
        std::string_view line = text.substr(0, nl);
        text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
        constexpr std::string_view bom = "\xEF\xBB\xBF";
        if (line.starts_with(bom)) {
            line.remove_prefix(bom.size());
        }
        while (!line.empty() && is_space(line.front())) {
            line.remove_prefix(1);
        }
        while (!line.empty() && is_space(line.back())) {
            line.remove_suffix(1);
        }
        if (!line.empty()) {
            names.emplace_back(line);
        }
    }
    return names;
}

std::string prefix_of(std::optional<std::string> const& prefix_option, std::string const& program_dir) {
    if (prefix_option) {
        return *prefix_option;
    }
    std::string dir = program_dir;
    while (dir.size() > 1 && dir.back() == '/') {
        dir.pop_back();
    }
    if (dir.empty() || dir == ".") {
        return "..";
    }
    auto const slash = dir.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : dir.substr(0, slash);
}

namespace {

// Whether a log file may be appended to: not a file argument, and new, empty or an earlier log.
bool usable_log_file(std::string const& path, std::vector<std::string> const& files, std::string const& curdir) {
    std::string const full = join_path(curdir, path);
    struct stat log_stat {};
    if (::stat(full.c_str(), &log_stat) != 0) {
        return true;
    }
    for (auto const& f : files) {
        struct stat file_stat {};
        if (::stat(join_path(curdir, f).c_str(), &file_stat) == 0 && file_stat.st_dev == log_stat.st_dev &&
            file_stat.st_ino == log_stat.st_ino) {
            return false;
        }
    }
    if (!S_ISREG(log_stat.st_mode) || log_stat.st_size == 0) {
        return true;
    }
    // Every run's part of a log file opens with this line (see log::open_file_log).
    constexpr std::string_view log_begin = "---- begin\n";
    std::ifstream in(full, std::ios::binary);
    std::string head(log_begin.size(), '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    return in && head == log_begin;
}

} // namespace

options parse_options(log::log const& log, std::vector<std::string> const& args, std::string const& program_dir,
                      std::string const& curdir) {
    parser p{args};
    if (auto e = p.run()) {
        return error{*e};
    }
    values const& v = p.v;
    // "--log doc.html" with a value that was meant as a file argument would append log lines to a
    // document: a log given so is only taken when it is new, empty or an earlier log, and never a file
    // argument. "--log=FILE" says what it means and is taken as it stands.
    if (auto const log_file = text(v, option::log); log_file && p.log_from_next && !usable_log_file(*log_file, p.files, curdir)) {
        return error{"option `--log' names a file that is not a log: " + *log_file + " (write --log=" + *log_file +
                     " to append to it all the same)"};
    }
    if (flag(v, option::help)) {
        return help{};
    }
    if (flag(v, option::credits)) {
        return credits{};
    }
    auto command_of = [&](command c) {
        return run_command{make_log_options(log, v), make_engine_options(log, v, program_dir, curdir), std::move(c)};
    };
    if (flag(v, option::version)) {
        return command_of(version{});
    }
    if (flag(v, option::scanfonts)) {
        return command_of(scanfonts{p.files});
    }
    if (flag(v, option::shell)) {
        return command_of(shell{p.files});
    }
    // Alone, --write-grammar prints the script parser's tables; with documents to convert it changes nothing.
    if (flag(v, option::write_grammar) && p.files.empty() && list(v, option::input_list).empty()) {
        return command_of(write_grammar{});
    }
    auto const output = text(v, option::output);
    auto const lists = list(v, option::input_list);
    auto job_of = [&](std::vector<std::string> const& names, job::output_dest dest) {
        std::vector<locator> inputs;
        for (auto const& n : names) {
            inputs.push_back(command_line_locator(n));
        }
        return command_of(job_command{make_job(v, inputs, std::move(dest))});
    };
    if (!lists.empty()) {
        if (!output) {
            return error{"no output filename specified"};
        }
        // File arguments are ignored when there is an input list.
        auto names = read_input_lists(log, lists, curdir);
        if (!names) {
            return input_list_failed{};
        }
        return job_of(*names, output_dest_of(*output));
    }
    if (output) {
        return job_of(p.files, output_dest_of(*output));
    }
    if (p.files.size() == 1) {
        locator const src = command_line_locator(p.files[0]);
        if (std::holds_alternative<resource::locator::standard_input>(src.locator_url)) {
            return command_of(job_command{make_job(v, {src}, job::standard_output{})});
        }
        if (auto const* f = std::get_if<resource::locator::file>(&src.locator_url)) {
            return command_of(job_command{make_job(v, {src}, job::file{{output_name(f->file_path.path)}})});
        }
        return error{"no output filename specified"};
    }
    if (p.files.empty()) {
        return unknown{};
    }
    if (!ends_with_pdf(p.files.back())) {
        return error{"no output filename specified"};
    }
    std::vector<std::string> inputs(p.files.begin(), p.files.end() - 1);
    return job_of(inputs, output_dest_of(p.files.back()));
}

} // namespace vellum::options
