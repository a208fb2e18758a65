#include "util/bytes.hpp"

#include <algorithm>

namespace vellum::bytes {

std::span<std::uint8_t const> bytes::view() const {
    if (!bytes_data) {
        return {};
    }
    return {bytes_data->data(), bytes_data->size()};
}

std::string_view bytes::chars() const {
    auto const v = view();
    return {reinterpret_cast<char const*>(v.data()), v.size()};
}

bool bytes::operator==(bytes const& other) const {
    auto const a = view();
    auto const b = other.view();
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

bytes from_span(std::span<std::uint8_t const> data) {
    return from_vector(std::vector<std::uint8_t>(data.begin(), data.end()));
}

bytes from_string(std::string_view text) {
    auto const* p = reinterpret_cast<std::uint8_t const*>(text.data());
    return from_vector(std::vector<std::uint8_t>(p, p + text.size()));
}

bytes from_vector(std::vector<std::uint8_t> data) {
    return {std::make_shared<std::vector<std::uint8_t> const>(std::move(data))};
}

} // namespace vellum::bytes
