// The standard security handler: padding, permission flags, the file key and the /O and /U entries of
// revisions 2 and 3, object keys, and the encryption dictionary. The expected keys were computed by an
// independent implementation of the published algorithms.
#include "pdf/encrypt.hpp"

#include <gtest/gtest.h>

namespace vellum::pdf::encrypt {
namespace {

std::string upper_hex(std::string_view bytes) {
    static char const digits[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char b : bytes) {
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out;
}

std::string const id("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF", 16);

TEST(encrypt, passwords_are_cut_or_padded_to_32_bytes) {
    EXPECT_EQ(pad_password(""), password_padding());
    EXPECT_EQ(pad_password("ab"), "ab" + std::string(password_padding().substr(0, 30)));
    EXPECT_EQ(pad_password(std::string(40, 'x')), std::string(32, 'x'));
    // Each code point is cut to its low byte: "é" is 0xE9, "€" (U+20AC) is 0xAC.
    EXPECT_EQ(pad_password("\xC3\xA9\xE2\x82\xAC").substr(0, 2), "\xE9\xAC");
}

TEST(encrypt, permission_flags) {
    EXPECT_EQ(permission_flags({}), -4);
    EXPECT_EQ(permission_flags({.can_print = false}), -8);
    EXPECT_EQ(permission_flags({.can_modify = false}), -12);
    EXPECT_EQ(permission_flags({.can_copy = false}), -20);
    EXPECT_EQ(permission_flags({.can_annotate = false}), -36);
    EXPECT_EQ(permission_flags({.can_print = false, .can_modify = false, .can_copy = false, .can_annotate = false}),
              -64);
}

TEST(encrypt, revision_2_with_no_passwords) {
    auto const k = make_encrypt_keys(id, {});
    ASSERT_TRUE(k);
    EXPECT_EQ(k->algorithm, encrypt_algorithm::version1_revision2);
    EXPECT_EQ(upper_hex(k->key), "85FE7C5D51");
    EXPECT_EQ(upper_hex(k->owner_key), "2055C756C72E1AD702608E8196ACAD447AD32D17CFF583235F6DD15FED7DAB67");
    EXPECT_EQ(upper_hex(k->user_key), "E6F8E044F4F9DC0158C31560C11E2DBDA4FE3487341BC7A11C77E297701A83CC");
    // The object key is the file key's length plus five bytes.
    EXPECT_EQ(upper_hex(object_key(*k, 0x123456, 0)), "15414EB6E20C5EBD3B55");
}

TEST(encrypt, revision_3_with_passwords_and_nothing_allowed) {
    metadata::encrypt const e{.key_bits = {128},
                              .user_password = "user",
                              .owner_password = "owner",
                              .permissions = {.can_print = false, .can_modify = false, .can_copy = false, .can_annotate = false}};
    auto const k = make_encrypt_keys(id, e);
    ASSERT_TRUE(k);
    EXPECT_EQ(k->algorithm, encrypt_algorithm::version2_revision3);
    EXPECT_EQ(k->perm_flags, -64);
    EXPECT_EQ(upper_hex(k->key), "5302D78025E10624C4C5C2DA6541F9E5");
    EXPECT_EQ(upper_hex(k->owner_key), "0BA3835F88F90388E74E54584125CE142BE0DE24C6B0D37746E075B891756671");
    ASSERT_EQ(k->user_key.size(), 32u);
    // Only the first 16 bytes of the revision 3 user entry carry meaning.
    EXPECT_EQ(upper_hex(k->user_key.substr(0, 16)), "D4A03925CD6956002C746DFC6357024F");
    // At most 16 bytes however long the key.
    EXPECT_EQ(upper_hex(object_key(*k, 7, 0)), "2EA65002291DFF9CDF20C20D7F75786C");
}

TEST(encrypt, an_absent_owner_password_is_the_user_password) {
    auto const a = make_encrypt_keys(id, {.user_password = "same"});
    auto const b = make_encrypt_keys(id, {.user_password = "same", .owner_password = "same"});
    ASSERT_TRUE(a && b);
    EXPECT_EQ(*a, *b);
}

TEST(encrypt, other_key_sizes_fail) {
    auto const k = make_encrypt_keys(id, {.key_bits = {64}});
    ASSERT_FALSE(k);
    EXPECT_EQ(k.error(), "invalid encrypt key size: 64");
}

TEST(encrypt, dictionary_entries_in_order) {
    auto const k40 = make_encrypt_keys(id, {});
    auto const k128 = make_encrypt_keys(id, {.key_bits = {128}});
    ASSERT_TRUE(k40 && k128);
    auto const keys_of = [](object const& o) {
        std::string out;
        for (auto const& [key, value] : std::get<dict>(o).dict_entries) {
            out += key + " ";
        }
        return out;
    };
    EXPECT_EQ(keys_of(encrypt_dict(*k40)), "Filter V R O U P ");
    EXPECT_EQ(keys_of(encrypt_dict(*k128)), "Filter V R O U P Length ");
    auto const o = encrypt_dict(*k128);
    auto const& d = std::get<dict>(o).dict_entries;
    EXPECT_EQ(d[1].second, object{std::int64_t{2}});
    EXPECT_EQ(d[2].second, object{std::int64_t{3}});
    EXPECT_EQ(d[6].second, object{std::int64_t{128}});
}

} // namespace
} // namespace vellum::pdf::encrypt
