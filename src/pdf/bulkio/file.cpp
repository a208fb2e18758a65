#include "pdf/bulkio/file.hpp"

namespace vellum::pdf::bulkio::file {

namespace {

bool write_file(void* target, std::uint8_t const* data, std::size_t size) {
    auto* f = static_cast<std::FILE*>(target);
    while (size > 0) {
        auto const n = std::fwrite(data, 1, size, f);
        if (n == 0) {
            return false;
        }
        data += n;
        size -= n;
    }
    return true;
}

} // namespace

output::output file_output(std::FILE* f) {
    return {.output_write = write_file, .output_target = f};
}

} // namespace vellum::pdf::bulkio::file
