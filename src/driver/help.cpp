#include "driver/help.hpp"

#include <cstdlib>
#include <string_view>

#include <curl/curl.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gif_lib.h>
#include <jpeglib.h>
#include <jerror.h>
#include <libxml/parser.h>
#include <zlib.h>

#ifndef VELLUM_VERSION
#define VELLUM_VERSION "unknown"
#endif
#ifndef VELLUM_BUILD_DATE
#define VELLUM_BUILD_DATE "unknown"
#endif
#ifndef VELLUM_BUILD_COMMIT
#define VELLUM_BUILD_COMMIT "unknown"
#endif
#ifndef VELLUM_BUILD_GRADE
#define VELLUM_BUILD_GRADE "unknown"
#endif

namespace vellum::help {
namespace {

struct help_line {
    std::string_view left;
    std::string_view right;
};

// A group heading has an empty right column; a group ends before the next heading.
constexpr help_line option_lines[] = {
    {"General Options:\n", ""},
    {"  -h, --help                ", "Display usage and options.\n"},
    {"      --version             ", "Display version information.\n"},
    {"      --credits             ", "Display credits and acknowledgements.\n"},
    {"Logging Options:\n", ""},
    {"  -v, --verbose             ", "Log informative messages.\n"},
    {"      --debug               ", "Log debug messages.\n"},
    {"      --log=FILE            ", "Append log messages to a file.\n"},
    {"Input Options:\n", ""},
    {"  -i, --input=FORMAT        ", "Set input format. [xml|html|auto]\n"},
    {"  -l, --input-list=FILE     ", "Read input file list from specified file.\n"},
    {"      --baseurl=URL         ", "Specify the base URL of the input document.\n"},
    {"      --fileroot=DIR        ", "Specify the root directory for absolute filenames.\n"},
    {"      --no-xinclude         ", "Disable XInclude processing.\n"},
    {"Network Options:\n", ""},
    {"  --no-network              ", "Disable network access (prevents HTTP downloads).\n"},
    {"  --auth-user=USER          ", "Specify username for HTTP authentication.\n"},
    {"  --auth-password=PASS      ", "Specify password for HTTP authentication.\n"},
    {"  --auth-server=SERVER      ", "Only send USER:PASS to this server.\n"},
    {"  --auth-scheme=SCHEME      ", "Only send USER:PASS for this scheme. [http|https]\n"},
    {"  --auth-method=METHODS     ", "Specify HTTP authentication methods. [basic,digest,ntlm,negotiate]\n"},
    {"  --auth=URL                ", "Specify URL with user:pass@server for authentication.\n"},
    {"  --no-auth-preemptive      ", "Do not authenticate with named servers until asked.\n"},
    {"  --http-proxy=PROXY        ", "Specify the HTTP proxy server.\n"},
    {"  --http-timeout=SEC        ", "Specify the HTTP timeout in seconds.\n"},
    {"  --cookie=COOKIE           ", "Specify a Set-Cookie header value.\n"},
    {"  --cookiejar=FILE          ", "Specify a file containing HTTP cookies.\n"},
    {"  --ssl-cacert=FILE         ", "Specify an SSL certificate file.\n"},
    {"  --ssl-capath=PATH         ", "Specify an SSL certificate directory.\n"},
    {"  --insecure                ", "Disable SSL verification (not recommended).\n"},
    {"JavaScript Options:\n", ""},
    {"  --javascript              ", "Enable JavaScript in HTML documents.\n"},
    {"  --script=FILE             ", "Run an external script.\n"},
    {"CSS Options:\n", ""},
    {"  -s, --style=FILE          ", "Apply an external style sheet.\n"},
    {"  --media=MEDIA             ", "Specify the media type (eg. print, screen).\n"},
    {"  --page-size=SIZE          ", "Specify the page size (eg. A4).\n"},
    {"  --page-margin=MARGIN      ", "Specify the page margin (eg. 20mm).\n"},
    {"  --no-author-style         ", "Ignore author style sheets.\n"},
    {"  --no-default-style        ", "Ignore default style sheets.\n"},
    {"PDF Output Options:\n", ""},
    {"  -o, --output=FILE         ", "Specify the output PDF filename.\n"},
    {"  --pdf-profile=PROFILE     ", "Specify the PDF profile to use.\n"},
    {"  --pdf-output-intent=ICC   ", "Specify the ICC profile to use.\n"},
    {"  --attach=FILE             ", "Attach a file to the PDF.\n"},
    {"  --no-artificial-fonts     ", "Disable synthesis of missing bold/italic fonts.\n"},
    {"  --no-embed-fonts          ", "Disable font embedding in PDF output.\n"},
    {"  --no-subset-fonts         ", "Disable font subsetting in PDF output.\n"},
    {"  --no-compress             ", "Disable compression of PDF output.\n"},
    {"PDF Metadata Options:\n", ""},
    {"  --pdf-title=TITLE         ", "Set PDF document title.\n"},
    {"  --pdf-subject=SUBJECT     ", "Set PDF document subject.\n"},
    {"  --pdf-author=AUTHOR       ", "Set PDF document author.\n"},
    {"  --pdf-keywords=KEYWORDS   ", "Set PDF document keywords.\n"},
    {"  --pdf-creator=CREATOR     ", "Set PDF document creator.\n"},
    {"PDF Encryption Options:\n", ""},
    {"  --encrypt                 ", "Encrypt PDF output.\n"},
    {"  --key-bits=NUM            ", "Set encryption key size [40|128].\n"},
    {"  --user-password=PASS      ", "Set PDF user password.\n"},
    {"  --owner-password=PASS     ", "Set PDF owner password.\n"},
    {"  --disallow-print          ", "Disallow printing of PDF output.\n"},
    {"  --disallow-copy           ", "Disallow copying from PDF output.\n"},
    {"  --disallow-annotate       ", "Disallow annotation of PDF output.\n"},
    {"  --disallow-modify         ", "Disallow modification of PDF output.\n"},
    {"Utility Options:\n", ""},
    {"  --scanfonts FILES...      ", "Scan font files and create a CSS file.\n"},
};

// "21003" (major, two digits of minor, two of release) as "2.10.3".
std::string dotted(long v) {
    return std::to_string(v / 10000) + "." + std::to_string(v / 100 % 100) + "." + std::to_string(v % 100);
}

std::string fontconfig_version() {
    return dotted(FcGetVersion());
}

std::string freetype_version() {
    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0) {
        return "(unknown)";
    }
    FT_Int major = 0, minor = 0, patch = 0;
    FT_Library_Version(library, &major, &minor, &patch);
    FT_Done_FreeType(library);
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

std::string curl_version_text() {
    curl_version_info_data const* info = curl_version_info(CURLVERSION_NOW);
    return info && info->version ? info->version : "(unknown)";
}

std::string libxml_version() {
    // The parser reports its version as digits, as LIBXML_VERSION does.
    return dotted(std::strtol(xmlParserVersion, nullptr, 10));
}

std::string jpeg_version() {
    // The library's own message table holds its version text ("8d  15-Jan-2012"); keep the first word.
    jpeg_error_mgr err{};
    jpeg_std_error(&err);
    if (err.jpeg_message_table && err.last_jpeg_message >= JMSG_VERSION) {
        std::string v = err.jpeg_message_table[JMSG_VERSION];
        return v.substr(0, v.find(' '));
    }
    return std::to_string(JPEG_LIB_VERSION / 10) + "." + std::to_string(JPEG_LIB_VERSION % 10);
}

std::string gif_version() {
    // giflib reports its version through its header only.
    return std::to_string(GIFLIB_MAJOR) + "." + std::to_string(GIFLIB_MINOR) + "." + std::to_string(GIFLIB_RELEASE);
}

std::string compiler() {
#if defined(__clang__)
    return std::string("clang ") + __clang_version__;
#elif defined(__GNUC__)
    return std::string("gcc ") + __VERSION__;
#else
    return "unknown";
#endif
}

} // namespace

std::string usage_text() {
    return "Usage:\n"
           "  vellum [OPTIONS] doc.html              Convert doc.html to doc.pdf\n"
           "  vellum [OPTIONS] doc.html -o out.pdf   Convert doc.html to out.pdf\n"
           "  vellum [OPTIONS] FILES... -o out.pdf   Combine multiple files to out.pdf\n"
           "\n";
}

std::string option_help_text() {
    std::string out;
    bool first = true;
    for (auto const& line : option_lines) {
        if (line.right.empty() && !first) {
            out += "\n";
        }
        out += line.left;
        out += line.right;
        first = false;
    }
    out += "\n";
    out += "For more information, visit http://vellum-print.org\n";
    return out;
}

std::string try_help_text() {
    return "Try 'vellum --help' for more information.";
}

std::string credits_text() {
    struct library {
        std::string name;
        std::string version;
        std::string_view thanks;
    };
    library const libraries[] = {
        {"Fontconfig", fontconfig_version(), "finds the fonts installed on the system"},
        {"FreeType", freetype_version(), "reads TrueType and OpenType font files"},
        {"libcurl", curl_version_text(), "fetches resources over HTTP and HTTPS"},
        {"libxml", libxml_version(), "parses XML and HTML documents and catalogs"},
        {"jpeglib", jpeg_version(), "decodes and encodes JPEG images (Independent JPEG Group)"},
        {"GIFLIB", gif_version(), "decodes GIF images"},
        {"zlib", zlibVersion(), "compresses PDF streams (Jean-loup Gailly and Mark Adler)"},
    };
    std::string out = "Vellum uses the following open source libraries:\n\n";
    for (auto const& l : libraries) {
        out += l.name + " " + l.version + "\n";
        out += "    Thanks to the authors of " + l.name + ", which " + std::string(l.thanks) + ".\n\n";
    }
    return out;
}

std::string version_number() {
    return VELLUM_VERSION;
}

std::string version_text(bool debug) {
    std::string out = std::string("Vellum ") + VELLUM_VERSION;
#ifdef VELLUM_EDITION
    out += std::string(" ") + VELLUM_EDITION;
#endif
    out += "\n";
    out += "Vellum comes with no warranty, to the extent permitted by law.\n";
    if (debug) {
        out += std::string("build-date: ") + VELLUM_BUILD_DATE + "\n";
        out += std::string("build-commit: ") + VELLUM_BUILD_COMMIT + "\n";
        out += "build-compiler: " + compiler() + "\n";
        out += std::string("build-grade: ") + VELLUM_BUILD_GRADE + "\n";
    }
    return out;
}

} // namespace vellum::help
