#include "util/cell.hpp"

namespace vellum {

std::recursive_mutex& process_lock() {
    // Recursive, so that code holding the lock for a libxml2 call may read a cell from a callback.
    static std::recursive_mutex lock;
    return lock;
}

} // namespace vellum
