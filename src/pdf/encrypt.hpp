// The standard security handler of PDF with RC4 and MD5 (revisions 2 and 3): the file key and the /O and
// /U entries derived from the passwords, the permission flags, the key of each object, and the
// encryption dictionary.
#pragma once

#include "pdf/metadata.hpp"
#include "pdf/object.hpp"
#include "pdf/pdf.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace vellum::pdf::encrypt {

/// Revision 2 encrypts with a 40-bit key, revision 3 with a 128-bit one.
enum class encrypt_algorithm { version1_revision2, version2_revision3 };

/// What the security handler derived for one file.
struct encrypt_keys {
    encrypt_algorithm algorithm = encrypt_algorithm::version1_revision2;
    int key_bits = 40;
    /// The file key, key_bits / 8 bytes.
    std::string key;
    /// The /U entry, 32 bytes.
    std::string user_key;
    /// The /O entry, 32 bytes.
    std::string owner_key;
    /// The /P entry.
    std::int32_t perm_flags = -4;
    bool operator==(encrypt_keys const&) const = default;
};

/// The 32 bytes every password is padded with.
std::string_view password_padding();

/// A password cut or padded to 32 bytes: each code point of its UTF-8 text cut to a byte.
std::string pad_password(std::string_view utf8);

/// The /P value of the permissions: -4, less 4 without printing, 8 without modifying, 16 without
/// copying and 32 without annotating.
std::int32_t permission_flags(metadata::permissions const& p);

/// Derives the keys of a file from its identifier (the first element of /ID) and the settings. A key
/// size other than 40 and 128 is an error "invalid encrypt key size: " and the size.
[[nodiscard]] result<encrypt_keys> make_encrypt_keys(std::string_view document_id, metadata::encrypt const& e);

/// The RC4 key of one object: from the file key, the object number and the generation.
std::string object_key(encrypt_keys const& keys, std::int64_t object_number, int generation);

/// The encryption dictionary: /Filter, /V, /R, /O, /U, /P, and /Length for revision 3.
object encrypt_dict(encrypt_keys const& keys);

/// What the file writer needs to encrypt every string and stream with the key of its object.
encryption encryption_of(encrypt_keys const& keys);

} // namespace vellum::pdf::encrypt
