// The writer of one PDF file: object numbers, indirect objects and streams written strictly forward
// through the file buffer, and the frame of the file (header, cross-reference table, trailer).
#pragma once

#include "pdf/bulkio/buffer.hpp"
#include "pdf/bulkio/deflate.hpp"
#include "pdf/bulkio/hex.hpp"
#include "pdf/object.hpp"
#include "pdf/profile.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vellum::pdf {

/// A running cipher over a sequence of bytes (an RC4 keystream, say), applied in place.
using cipher = std::function<void(std::span<std::uint8_t>)>;

/// What the writer needs to encrypt a file. The keys behind it are derived by the security handler;
/// the writer only asks for ciphers and writes the dictionary.
struct encryption {
    /// A fresh cipher keyed for the object with this number. Every string of the object and the body
    /// of a stream each start their own.
    std::function<cipher(ref)> encryption_cipher_for{};
    /// The encryption dictionary; the one object whose strings are written unencrypted.
    dict encryption_dict{};
};

/// The cipher layer of one encrypted stream, between the filters and the file buffer.
struct crypt_info {
    cipher crypt_cipher{};
    bulkio::buffer::buffer* crypt_file = nullptr;
};

/// A layer in front of a stream's sink that has to be closed when the stream ends.
struct ascii_hex_wrapper {
    std::unique_ptr<bulkio::hex::hex> wrapper_hex{};
};

struct deflate_wrapper {
    bulkio::deflate::deflate_ptr wrapper_deflate{};
};

struct buffer_wrapper {
    std::unique_ptr<bulkio::buffer::buffer> wrapper_buffer{};
};

using stream_wrapper = std::variant<ascii_hex_wrapper, deflate_wrapper, buffer_wrapper>;

/// An open stream.
struct stream_data {
    pdf::stream_length stream_length{};
    /// Closed in list order, the layer nearest the body first.
    std::vector<stream_wrapper> stream_wrappers{};
    /// Present in an encrypted file.
    std::unique_ptr<crypt_info> stream_crypt{};
    /// The file position of the first byte of the data.
    std::uint32_t stream_start = 0;
    /// Where the body is written: the file buffer itself when nothing stands between, otherwise a
    /// buffer in front of the layers.
    bulkio::buffer::buffer* stream_body = nullptr;
};

/// The state of a file being written.
struct writer {
    /// The one sink of the file, owned by the caller, who flushes it after finish_pdf.
    bulkio::buffer::buffer* writer_output = nullptr;
    /// The conformance profile the file is written to, if any.
    std::optional<profile::pdf_profile> writer_profile{};
    /// The file identifier, raw bytes.
    std::string writer_document_id{};
    std::optional<encryption> writer_encryption{};
    /// The next free object number; numbering starts at 1.
    std::int64_t writer_next_ref = 1;
    /// The file position of each object, at index number - 1; `unwritten` until it is written.
    std::vector<std::int64_t> writer_offsets{};
    /// How many reserved numbers have no object yet.
    std::size_t writer_unused_count = 0;
    std::optional<ref> writer_root{};
    std::optional<ref> writer_info{};
    std::optional<ref> writer_encrypt{};
    bool writer_in_stream = false;
};

/// The offset of a number that has been reserved and not yet written.
inline constexpr std::int64_t unwritten = -1;

/// The version text of the header, e.g. "PDF-1.4".
std::string_view version_text(pdf_version v);

/// Creates the writer state and writes the header: the version comment and a comment of four bytes
/// above 127 that marks the file as binary.
writer start_pdf(bulkio::buffer::buffer& file,
                 pdf_version version,
                 std::optional<profile::pdf_profile> profile,
                 std::string document_id,
                 std::optional<encryption> encrypt);

/// Whether the profile forbids transparency, so that pages are painted opaque; false without a profile.
bool strips_transparency(writer const& w);

/// Whether the profile forbids a transparency group on pages; false without a profile.
bool forbids_page_group(writer const& w);

/// Whether the profile requires creation and modification dates; false without a profile.
bool requires_dates(writer const& w);

/// Whether the profile requires /BleedBox and /TrimBox on every page; false without a profile.
bool requires_page_boxes(writer const& w);

/// Whether the profile wants process colours instead of device RGB; false without a profile.
bool forbids_device_rgb(writer const& w);

/// Reserves the next object number.
ref new_ref(writer& w);

/// Writes an indirect object; in an encrypted file its strings are encrypted first.
void write_object(writer& w, ref r, object const& value);

/// Writes an indirect object without encrypting it.
void write_object_plain(writer& w, ref r, object const& value);

/// Writes the dictionary of a stream and opens its data; the body goes to `stream_body`.
stream_data begin_stream(writer& w, ref r, stream const& s);

/// Closes the layers of a stream, writes its tail and checks or writes its length.
void end_stream(writer& w, stream_data data);

/// Writes a whole stream from bytes in memory.
void write_stream_bytes(
    writer& w, ref r, stream_filter filter, dict params, std::span<std::uint8_t const> data);

/// Writes a stream whose body the callback writes into the buffer it receives.
template <class Body>
void write_stream_with(writer& w, ref r, stream const& s, Body&& body) {
    auto data = begin_stream(w, r, s);
    body(*data.stream_body);
    end_stream(w, std::move(data));
}

/// Writes the document catalog under a reserved number.
void write_root(writer& w, ref r, dict const& catalog);

/// Writes the information dictionary under a new number.
ref write_info(writer& w, dict const& info);

/// Writes the encryption dictionary of an encrypted file under a new number; nothing otherwise.
void write_encrypt(writer& w);

/// Writes the cross-reference table and the trailer.
void finish_pdf(writer& w);

/// The bytes of a file identifier given as hexadecimal text: two digits to a byte, case ignored; a
/// non-digit or a lone last digit ends the reading.
std::string document_id_from_hex(std::string_view text);

/// A fresh file identifier: the MD5 digest of the time and the process id.
std::string new_document_id();

} // namespace vellum::pdf
