// MD5 against the test suite of RFC 1321 and RC4 against published keystreams.
#include "pdf/bulkio/crypt/arc4.hpp"
#include "pdf/bulkio/crypt/md5.hpp"

#include <string>

#include <gtest/gtest.h>

namespace vellum::pdf::bulkio::crypt {
namespace {

std::string hex_of(std::span<std::uint8_t const> bytes) {
    static char const digits[] = "0123456789abcdef";
    std::string out;
    for (auto b : bytes) {
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out;
}

std::span<std::uint8_t const> bytes_of(std::string_view s) {
    return {reinterpret_cast<std::uint8_t const*>(s.data()), s.size()};
}

TEST(md5, rfc_1321_test_suite) {
    struct row {
        char const* input;
        char const* digest;
    };
    std::string const digits80 =
        "12345678901234567890123456789012345678901234567890123456789012345678901234567890";
    row const rows[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {digits80.c_str(), "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.input);
        EXPECT_EQ(hex_of(md5::of(bytes_of(r.input))), r.digest);
    }
}

TEST(md5, pieces_of_any_size_give_the_digest_of_the_whole) {
    // 200 bytes cross block boundaries and the 56-byte padding limit in every way the pieces allow.
    std::string text;
    for (int i = 0; i < 200; ++i) {
        text.push_back(static_cast<char>(i * 7 + 3));
    }
    for (std::size_t cut : {1u, 55u, 56u, 63u, 64u, 65u, 119u, 128u}) {
        SCOPED_TRACE(cut);
        for (std::size_t end : {55u, 56u, 64u, 120u, 200u}) {
            md5::md5 m;
            auto const whole = std::string_view(text).substr(0, end);
            md5::update(m, whole.substr(0, std::min(cut, end)));
            md5::update(m, whole.substr(std::min(cut, end)));
            EXPECT_EQ(md5::finish(m), md5::of(bytes_of(whole)));
        }
    }
}

TEST(arc4, known_keystreams) {
    struct row {
        std::string key;
        std::string plain;
        char const* cipher;
    };
    row const rows[] = {
        {"Key", "Plaintext", "bbf316e8d940af0ad3"},
        {"Wiki", "pedia", "1021bf0420"},
        {"Secret", "Attack at dawn", "45a01f645fc35b383552544b9bf5"},
        {std::string("\x01\x02\x03\x04\x05", 5), std::string(16, '\0'), "b2396305f03dc027ccc3524a0a1118a8"},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.plain);
        auto c = arc4::make(bytes_of(r.key));
        std::string data = r.plain;
        // In two pieces: the keystream goes on across calls.
        auto* bytes = reinterpret_cast<std::uint8_t*>(data.data());
        arc4::apply(c, std::span(bytes, 2));
        arc4::apply(c, std::span(bytes + 2, data.size() - 2));
        EXPECT_EQ(hex_of(bytes_of(data)), r.cipher);
        // The same key decrypts.
        auto d = arc4::make(bytes_of(r.key));
        arc4::apply(d, std::span(bytes, data.size()));
        EXPECT_EQ(data, r.plain);
    }
}

} // namespace
} // namespace vellum::pdf::bulkio::crypt
