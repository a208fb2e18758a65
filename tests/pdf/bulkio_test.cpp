#include "pdf/bulkio/buffer.hpp"
#include "pdf/bulkio/deflate.hpp"
#include "pdf/bulkio/file.hpp"
#include "pdf/bulkio/hex.hpp"
#include "pdf/memory_sink.hpp"

#include <algorithm>
#include <random>

#include <zlib.h>

#include <gtest/gtest.h>

namespace vellum::pdf::bulkio {
namespace {

using testing::memory_sink;
using testing::output_of;

std::vector<std::uint8_t> random_bytes(std::size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::vector<std::uint8_t> v(n);
    for (auto& b : v) {
        b = static_cast<std::uint8_t>(gen());
    }
    return v;
}

TEST(buffer, holds_bytes_until_full_and_counts_position) {
    memory_sink m;
    auto b = buffer::open(output_of(m), 8);
    buffer::put_text(*b, "abcde");
    buffer::put_byte(*b, 'f');
    EXPECT_TRUE(m.sink_bytes.empty());
    EXPECT_EQ(buffer::position(*b), 6u);
    buffer::put_text(*b, "ghij");
    // The buffer filled at eight bytes and went out as one run; two bytes are still held.
    EXPECT_EQ(m.sink_bytes, "abcdefgh");
    EXPECT_EQ(b->buffer_flushed, 8u);
    EXPECT_EQ(b->buffer_used, 2u);
    EXPECT_EQ(buffer::position(*b), 10u);
    buffer::flush(*b);
    EXPECT_EQ(m.sink_bytes, "abcdefghij");
    EXPECT_EQ(buffer::position(*b), 10u);
}

TEST(buffer, passes_large_runs_in_capacity_sized_pieces) {
    memory_sink m;
    auto b = buffer::open(output_of(m));
    buffer::put_text(*b, "xyz");
    auto const big = random_bytes(3 * buffer::default_capacity + 100, 1);
    buffer::put_bytes(*b, big);
    buffer::flush(*b);
    EXPECT_EQ(m.sink_bytes.size(), big.size() + 3);
    EXPECT_EQ(m.sink_bytes.substr(3), std::string(big.begin(), big.end()));
    ASSERT_EQ(m.sink_runs.size(), 4u);
    for (std::size_t i = 0; i + 1 < m.sink_runs.size(); ++i) {
        EXPECT_EQ(m.sink_runs[i], buffer::default_capacity);
    }
    EXPECT_EQ(m.sink_runs.back(), 103u);
    EXPECT_EQ(buffer::position(*b), big.size() + 3);
}

TEST(buffer, writes_hex_runs_in_upper_case) {
    memory_sink m;
    auto b = buffer::open(output_of(m), 3);
    std::uint8_t const data[] = {0x00, 0x7f, 0xab, 0xff};
    buffer::put_hex(*b, data);
    buffer::flush(*b);
    EXPECT_EQ(m.sink_bytes, "007FABFF");
}

TEST(buffer, failing_target_raises_error_writing_to_buffer) {
    memory_sink m{.sink_fails = true};
    auto b = buffer::open(output_of(m), 4);
    buffer::put_text(*b, "abcd");
    try {
        buffer::put_byte(*b, 'e');
        FAIL() << "no exception";
    } catch (output::write_error const& e) {
        EXPECT_STREQ(e.what(), "error writing to buffer");
    }
}

TEST(file, full_device_raises_error_writing_to_buffer) {
    std::FILE* f = std::fopen("/dev/full", "wb");
    ASSERT_NE(f, nullptr);
    auto b = buffer::open(file::file_output(f));
    auto const data = random_bytes(buffer::default_capacity + 1, 2);
    try {
        buffer::put_bytes(*b, data);
        FAIL() << "no exception";
    } catch (output::write_error const& e) {
        EXPECT_STREQ(e.what(), "error writing to buffer");
    }
    std::fclose(f);
}

TEST(file, writes_every_byte_and_accepts_empty_runs) {
    std::string const path = ::testing::TempDir() + "bulkio_file_test.bin";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    auto const out = file::file_output(f);
    auto const data = random_bytes(200000, 3);
    EXPECT_TRUE(output::write(out, {}));
    EXPECT_TRUE(output::write(out, data));
    ASSERT_EQ(std::fclose(f), 0);
    f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::vector<std::uint8_t> back(data.size() + 1);
    EXPECT_EQ(std::fread(back.data(), 1, back.size(), f), data.size());
    back.resize(data.size());
    EXPECT_EQ(back, data);
    std::fclose(f);
}

TEST(hex, breaks_lines_after_72_digits_across_writes) {
    memory_sink m;
    auto h = hex::open(output_of(m));
    std::vector<std::uint8_t> data(50, 0xA5);
    // 100 bytes in two writes of 50: the column carries over, so lines break after bytes 36 and 72.
    EXPECT_TRUE(hex::write(*h, data));
    EXPECT_TRUE(hex::write(*h, data));
    std::string expected;
    for (int i = 0; i < 36; ++i) {
        expected += "A5";
    }
    expected = expected + "\n" + expected + "\n";
    for (int i = 0; i < 28; ++i) {
        expected += "A5";
    }
    EXPECT_EQ(m.sink_bytes, expected);
    // No end-of-data mark, ever.
    EXPECT_EQ(m.sink_bytes.find('>'), std::string::npos);
}

TEST(hex, encodes_every_byte_value) {
    memory_sink m;
    auto h = hex::open(output_of(m));
    std::vector<std::uint8_t> all(256);
    for (int i = 0; i < 256; ++i) {
        all[i] = static_cast<std::uint8_t>(i);
    }
    EXPECT_TRUE(hex::write(*h, all));
    std::string digits;
    for (char c : m.sink_bytes) {
        if (c != '\n') {
            digits += c;
        }
    }
    ASSERT_EQ(digits.size(), 512u);
    EXPECT_EQ(digits.substr(0, 8), "00010203");
    EXPECT_EQ(digits.substr(0x7F * 2, 4), "7F80");
    EXPECT_EQ(digits.substr(508), "FEFF");
    EXPECT_EQ(std::count(m.sink_bytes.begin(), m.sink_bytes.end(), '\n'), 512 / 72);
}

TEST(hex, reports_a_failing_target) {
    memory_sink m{.sink_fails = true};
    auto h = hex::open(output_of(m));
    std::uint8_t const one[] = {1};
    EXPECT_FALSE(hex::write(*h, one));
}

std::string inflate_all(std::string const& compressed, std::size_t expected_size) {
    std::string out(expected_size + 16, '\0');
    uLongf size = out.size();
    int const status = uncompress(reinterpret_cast<Bytef*>(out.data()), &size,
                                  reinterpret_cast<Bytef const*>(compressed.data()), compressed.size());
    EXPECT_EQ(status, Z_OK);
    out.resize(size);
    return out;
}

TEST(deflate, round_trips_through_zlib) {
    struct {
        char const* name;
        std::vector<std::uint8_t> data;
        std::size_t piece;
    } cases[] = {
        {"empty", {}, 1},
        {"text in small writes", {}, 7},
        {"random data larger than the chunk", random_bytes(50000, 4), 50000},
        {"random data in odd pieces", random_bytes(20000, 5), 333},
    };

    std::string const text = "BT /F1 12 Tf 72 712 Td (Hello, world) Tj ET\n";
    for (int i = 0; i < 500; ++i) {
        cases[1].data.insert(cases[1].data.end(), text.begin(), text.end());
    }
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        memory_sink m;
        auto d = deflate::open(output_of(m));
        ASSERT_NE(d, nullptr);
        for (std::size_t at = 0; at < c.data.size(); at += c.piece) {
            auto const n = std::min(c.piece, c.data.size() - at);
            ASSERT_TRUE(deflate::write(*d, {c.data.data() + at, n}));
        }
        ASSERT_TRUE(deflate::finish(*d));
        for (auto run : m.sink_runs) {
            EXPECT_LE(run, deflate::chunk_size);
        }
        EXPECT_EQ(inflate_all(m.sink_bytes, c.data.size()), std::string(c.data.begin(), c.data.end()));
    }
}

TEST(deflate, compresses_repetitive_text) {
    memory_sink m;
    auto d = deflate::open(output_of(m));
    std::string const page(100000, 'q');
    ASSERT_TRUE(deflate::write(*d, output::as_bytes(page)));
    ASSERT_TRUE(deflate::finish(*d));
    EXPECT_LT(m.sink_bytes.size(), 1000u);
}

TEST(deflate, reports_a_failing_target) {
    memory_sink m{.sink_fails = true};
    auto d = deflate::open(output_of(m));
    auto const data = random_bytes(10000, 6);
    bool ok = deflate::write(*d, data);
    ok = ok && deflate::finish(*d);
    EXPECT_FALSE(ok);
}

} // namespace
} // namespace vellum::pdf::bulkio
