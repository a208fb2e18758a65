#include "pdf/encrypt.hpp"

#include "pdf/bulkio/crypt/arc4.hpp"
#include "pdf/bulkio/crypt/md5.hpp"
#include "util/textbuf.hpp"

#include <memory>

namespace vellum::pdf::encrypt {

namespace {

namespace md5 = bulkio::crypt::md5;
namespace arc4 = bulkio::crypt::arc4;

std::span<std::uint8_t const> bytes_of(std::string_view s) {
    return {reinterpret_cast<std::uint8_t const*>(s.data()), s.size()};
}

std::string text_of(md5::digest const& d, std::size_t n) {
    return std::string(reinterpret_cast<char const*>(d.data()), n);
}

std::string rc4(std::string_view key, std::string_view data) {
    std::string out(data);
    auto c = arc4::make(bytes_of(key));
    arc4::apply(c, std::span(reinterpret_cast<std::uint8_t*>(out.data()), out.size()));
    return out;
}

// Revision 3 strengthens a step by running RC4 19 more times over its result, each time with every
// byte of the key XORed with the round's number.
std::string rc4_rounds(std::string_view key, std::string data) {
    for (int round = 1; round <= 19; ++round) {
        std::string k(key);
        for (auto& c : k) {
            c = static_cast<char>(c ^ round);
        }
        data = rc4(k, data);
    }
    return data;
}

// Revision 3 also hashes 50 more times, each round over the first n bytes of the digest before.
md5::digest md5_rounds(md5::digest d, std::size_t n) {
    for (int round = 0; round < 50; ++round) {
        d = md5::of(std::span(d.data(), n));
    }
    return d;
}

} // namespace

std::string_view password_padding() {
    static constexpr unsigned char padding[32] = {0x28, 0xBF, 0x4E, 0x5E, 0x4E, 0x75, 0x8A, 0x41,
                                                  0x64, 0x00, 0x4E, 0x56, 0xFF, 0xFA, 0x01, 0x08,
                                                  0x2E, 0x2E, 0x00, 0xB6, 0xD0, 0x68, 0x3E, 0x80,
                                                  0x2F, 0x0C, 0xA9, 0xFE, 0x64, 0x53, 0x69, 0x7A};
    return {reinterpret_cast<char const*>(padding), sizeof padding};
}

std::string pad_password(std::string_view utf8) {
    std::string out;
    std::size_t pos = 0;
    while (pos < utf8.size() && out.size() < 32) {
        out.push_back(static_cast<char>(textbuf::next_utf8(utf8, pos) & 0xFF));
    }
    out.append(password_padding().substr(0, 32 - out.size()));
    return out;
}

std::int32_t permission_flags(metadata::permissions const& p) {
    // Bits 1 and 2 must be clear and every bit the handler does not use is set, so everything
    // granted is -4; printing, modifying, copying and annotating are bits 3 to 6.
    std::int32_t flags = -4;
    if (!p.can_print) {
        flags -= 4;
    }
    if (!p.can_modify) {
        flags -= 8;
    }
    if (!p.can_copy) {
        flags -= 16;
    }
    if (!p.can_annotate) {
        flags -= 32;
    }
    return flags;
}

result<encrypt_keys> make_encrypt_keys(std::string_view document_id, metadata::encrypt const& e) {
    encrypt_keys k{.key_bits = e.key_bits.bits, .perm_flags = permission_flags(e.permissions)};
    if (e.key_bits.bits == 40) {
        k.algorithm = encrypt_algorithm::version1_revision2;
    } else if (e.key_bits.bits == 128) {
        k.algorithm = encrypt_algorithm::version2_revision3;
    } else {
        return fail("invalid encrypt key size: " + std::to_string(e.key_bits.bits));
    }
    bool const r3 = k.algorithm == encrypt_algorithm::version2_revision3;
    std::size_t const n = static_cast<std::size_t>(k.key_bits / 8);
    std::string const user = pad_password(e.user_password.value_or(""));
    std::string const owner = pad_password(e.owner_password ? *e.owner_password : e.user_password.value_or(""));

    // The owner entry: the padded user password encrypted with a key made from the owner password, so
    // that the owner password can recover the user password.
    md5::digest owner_digest = md5::of(bytes_of(owner));
    if (r3) {
        owner_digest = md5_rounds(owner_digest, 16);
    }
    std::string const owner_rc4_key = text_of(owner_digest, n);
    k.owner_key = rc4(owner_rc4_key, user);
    if (r3) {
        k.owner_key = rc4_rounds(owner_rc4_key, k.owner_key);
    }

    // The file key: the padded user password, the owner entry, the permissions as four bytes with the
    // lowest first and the file identifier.
    md5::md5 m;
    md5::update(m, user);
    md5::update(m, k.owner_key);
    auto const p = static_cast<std::uint32_t>(k.perm_flags);
    std::uint8_t const p_bytes[4] = {static_cast<std::uint8_t>(p), static_cast<std::uint8_t>(p >> 8),
                                     static_cast<std::uint8_t>(p >> 16), static_cast<std::uint8_t>(p >> 24)};
    md5::update(m, std::span<std::uint8_t const>(p_bytes, 4));
    md5::update(m, document_id);
    md5::digest key_digest = md5::finish(m);
    if (r3) {
        key_digest = md5_rounds(key_digest, n);
    }
    k.key = text_of(key_digest, n);

    // The user entry lets a reader check a password: revision 2 encrypts the padding itself; revision 3
    // encrypts the digest of the padding and the identifier, and fills the last 16 bytes freely.
    if (r3) {
        md5::md5 u;
        md5::update(u, password_padding());
        md5::update(u, document_id);
        k.user_key = rc4_rounds(k.key, rc4(k.key, text_of(md5::finish(u), 16)));
        k.user_key.append(password_padding().substr(0, 16));
    } else {
        k.user_key = rc4(k.key, password_padding());
    }
    return k;
}

std::string object_key(encrypt_keys const& keys, std::int64_t object_number, int generation) {
    md5::md5 m;
    md5::update(m, keys.key);
    auto const n = static_cast<std::uint64_t>(object_number);
    auto const g = static_cast<std::uint32_t>(generation);
    std::uint8_t const extra[5] = {static_cast<std::uint8_t>(n), static_cast<std::uint8_t>(n >> 8),
                                   static_cast<std::uint8_t>(n >> 16), static_cast<std::uint8_t>(g),
                                   static_cast<std::uint8_t>(g >> 8)};
    md5::update(m, std::span<std::uint8_t const>(extra, 5));
    return text_of(md5::finish(m), std::min<std::size_t>(keys.key.size() + 5, 16));
}

object encrypt_dict(encrypt_keys const& keys) {
    bool const r3 = keys.algorithm == encrypt_algorithm::version2_revision3;
    dict d{{{"Filter", name{"Standard"}},
            {"V", std::int64_t{r3 ? 2 : 1}},
            {"R", std::int64_t{r3 ? 3 : 2}},
            {"O", hex{keys.owner_key}},
            {"U", hex{keys.user_key}},
            {"P", std::int64_t{keys.perm_flags}}}};
    if (r3) {
        d.dict_entries.emplace_back("Length", std::int64_t{keys.key_bits});
    }
    return d;
}

encryption encryption_of(encrypt_keys const& keys) {
    auto const shared = std::make_shared<encrypt_keys const>(keys);
    return encryption{
        .encryption_cipher_for =
            [shared](ref r) -> cipher {
            auto state = std::make_shared<arc4::arc4>(
                arc4::make(bytes_of(object_key(*shared, r.ref_index, 0))));
            return [state](std::span<std::uint8_t> data) { arc4::apply(*state, data); };
        },
        .encryption_dict = std::get<dict>(encrypt_dict(keys)),
    };
}

} // namespace vellum::pdf::encrypt
