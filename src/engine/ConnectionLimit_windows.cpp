#include "engine/ConnectionLimit.h"

namespace ql::impl {

std::size_t connectionLimit() {
    // The system has no limit of its own.
    return 1000000;
}

} // namespace ql::impl
