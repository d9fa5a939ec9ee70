#include "engine/ConnectionLimit.h"

#include <algorithm>

namespace ql::impl {

unsigned int connectionLimit(std::uint32_t threadPoolSize) {
    // The system has no limit of its own.
    constexpr std::uint32_t MostConnections = 1000000;
    return (std::max)(MostConnections, threadPoolSize);
}

} // namespace ql::impl
