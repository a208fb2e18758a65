// An immutable block of bytes, shared cheaply between holders.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vellum::bytes {

/// An immutable byte block; copies share the same storage.
struct bytes {
    std::shared_ptr<std::vector<std::uint8_t> const> bytes_data;

    /// The bytes as a span (empty for a default value).
    std::span<std::uint8_t const> view() const;
    /// The bytes as characters.
    std::string_view chars() const;
    std::size_t size() const { return bytes_data ? bytes_data->size() : 0; }
    bool empty() const { return size() == 0; }
    bool operator==(bytes const& other) const;
};

/// A block holding a copy of the given bytes.
bytes from_span(std::span<std::uint8_t const> data);

/// A block holding a copy of the characters.
bytes from_string(std::string_view text);

/// A block taking over a vector.
bytes from_vector(std::vector<std::uint8_t> data);

} // namespace vellum::bytes
