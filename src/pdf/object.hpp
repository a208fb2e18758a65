// The value model of PDF objects and its serialisation: the eleven kinds of value, references, streams
// as callers describe them, and the internal failures of the writer.
#pragma once

#include "util/result.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::pdf::bulkio::buffer {
struct buffer;
} // namespace vellum::pdf::bulkio::buffer

namespace vellum::pdf {

/// An indirect reference; the generation is always 0.
struct ref {
    std::int64_t ref_index = 0;
    auto operator<=>(ref const&) const = default;
};

/// A number that may be whole or not, so that whole numbers stay whole in the output.
using number = std::variant<std::int64_t, double>;

/// The null object.
struct null {
    bool operator==(null const&) const = default;
};

/// A literal string; its text is UTF-8 of which only the low byte of each code point is written.
struct string {
    std::string string_text{};
    bool operator==(string const&) const = default;
};

/// A hexadecimal string of raw bytes.
struct hex {
    std::string hex_bytes{};
    bool operator==(hex const&) const = default;
};

/// A name, without its slash, as UTF-8 text.
struct name {
    std::string name_text{};
    bool operator==(name const&) const = default;
};

struct object;

/// An array of objects.
struct array {
    std::vector<object> array_items;
    bool operator==(array const&) const;
};

/// One entry of a dictionary: the key (a name without its slash) and the value.
using dict_entry = std::pair<std::string, object>;

/// A dictionary; entries are written in list order and duplicate keys are not looked for.
struct dict {
    std::vector<dict_entry> dict_entries;
    bool operator==(dict const&) const;
};

/// A PDF value. The `std::int64_t` alternative is written with "%ld", the `double` one with "%.4f".
struct object : std::variant<null, bool, std::int64_t, double, number, string, hex, name, array, dict, ref> {
    using variant::variant;
    bool operator==(object const&) const = default;
};

/// The version written in the file header.
enum class pdf_version { pdf_1_4, pdf_1_5, pdf_1_6, pdf_1_7 };

/// The encoding of a stream's data. `flate_encoded` is data compressed already (a zlib stream), written
/// as it stands under /FlateDecode.
enum class stream_filter { as_is, deflate, ascii_hex, dctdecode, flate_encoded };

/// What the caller says about a stream before writing it.
struct stream {
    pdf::stream_filter stream_filter = pdf::stream_filter::as_is;
    /// The length of the data as written, when known beforehand; otherwise it goes into an object of
    /// its own after the stream.
    std::optional<std::int64_t> stream_length{};
    /// Entries of the stream dictionary that follow /Length and /Filter.
    dict stream_params{};
    bool operator==(stream const&) const = default;
};

/// A length declared in the stream dictionary.
struct direct_length {
    std::int64_t direct_value = 0;
    bool operator==(direct_length const&) const = default;
};

/// A length held by an object written right after the stream.
struct indirect_auto {
    ref indirect_ref{};
    bool operator==(indirect_auto const&) const = default;
};

/// How the length of an open stream is given.
using stream_length = std::variant<direct_length, indirect_auto>;

namespace common {

/// A rectangle in default user space.
struct rect {
    number left = std::int64_t{0};
    number bottom = std::int64_t{0};
    number right = std::int64_t{0};
    number top = std::int64_t{0};
    bool operator==(rect const&) const = default;
};

} // namespace common

/// A time of day.
struct time_of_day {
    int hour = 0;
    int minute = 0;
    int second = 0;
    bool operator==(time_of_day const&) const = default;
};

/// A calendar date with an optional time, for the dates of the information dictionary.
struct date {
    int year = 0;
    int month = 1;
    int day = 1;
    std::optional<time_of_day> date_time{};
    bool operator==(date const&) const = default;
};

/// Internal failures of the writer: each means that the layers above used it wrongly.
struct ref_already_used {
    ref used_ref{};
    bool operator==(ref_already_used const&) const = default;
};

struct unused_refs {
    /// The numbers reserved and never written, newest first.
    std::vector<ref> unused_list{};
    bool operator==(unused_refs const&) const = default;
};

struct incorrect_stream_length {
    std::int64_t specified = 0;
    std::int64_t actual = 0;
    bool operator==(incorrect_stream_length const&) const = default;
};

struct missing_root_object {
    bool operator==(missing_root_object const&) const = default;
};

struct root_already_written {
    ref root_ref{};
    bool operator==(root_already_written const&) const = default;
};

struct info_already_written {
    ref info_ref{};
    bool operator==(info_already_written const&) const = default;
};

struct graphics_state_stack_underflow {
    bool operator==(graphics_state_stack_underflow const&) const = default;
};

/// One internal failure of PDF output.
using pdf_exception = std::variant<ref_already_used,
                                   unused_refs,
                                   incorrect_stream_length,
                                   missing_root_object,
                                   root_already_written,
                                   info_already_written,
                                   graphics_state_stack_underflow>;

/// The exception that carries a pdf_exception; what() names the failure.
struct pdf_error : internal_error {
    explicit pdf_error(pdf_exception e);
    pdf_exception pdf_error_value{};
};

/// The message for a failure, e.g. "pdf: reference 7 already used".
std::string describe(pdf_exception const& e);

/// Throws pdf_error for the failure.
[[noreturn]] void raise(pdf_exception e);

/// The serialised form of a value.
std::string to_text(object const& value);

/// Writes the serialised form of a value into a buffer.
void write_value(bulkio::buffer::buffer& out, object const& value);

/// The object for a text string: a literal string when all code points are ASCII, otherwise a hex
/// string of UTF-16BE with a byte order mark (code points above U+FFFF keep their low 16 bits).
object text_string(std::string_view utf8);

/// The string object of a date, "D:YYYYMMDD" followed by "HHMMSS" when the time is known.
object pdf_date(date const& d);

/// The array left, bottom, right, top.
object rect_to_array(common::rect const& r);

/// The object of a number: an int or a real according to its kind.
object from_number(number n);

} // namespace vellum::pdf
