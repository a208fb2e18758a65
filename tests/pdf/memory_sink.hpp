// A byte sink in memory for the tests: it keeps the bytes and the size of each run it was handed, and
// can be told to fail.
#pragma once

#include "pdf/bulkio/output.hpp"

#include <string>
#include <vector>

namespace vellum::pdf::testing {

struct memory_sink {
    std::string sink_bytes{};
    std::vector<std::size_t> sink_runs{};
    bool sink_fails = false;
};

inline bool write_memory(void* target, std::uint8_t const* data, std::size_t size) {
    auto& m = *static_cast<memory_sink*>(target);
    if (m.sink_fails) {
        return false;
    }
    m.sink_bytes.append(reinterpret_cast<char const*>(data), size);
    m.sink_runs.push_back(size);
    return true;
}

inline bulkio::output::output output_of(memory_sink& m) {
    return {.output_write = write_memory, .output_target = &m};
}

} // namespace vellum::pdf::testing
