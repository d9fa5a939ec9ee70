#include "engine/ConnectionLimit.h"

#include <algorithm>

#include <sys/resource.h>

namespace ql::impl {

unsigned int connectionLimit(std::uint32_t threadPoolSize) {
    // Also where there is no limit.
    constexpr rlim_t MostConnections = 1000000;
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) != 0 || descriptors.rlim_cur == RLIM_INFINITY) {
        descriptors.rlim_cur = MostConnections;
    }
    const rlim_t limit = std::min(descriptors.rlim_cur - descriptors.rlim_cur / 8, MostConnections);
    return std::max({static_cast<unsigned int>(limit), threadPoolSize, 1U});
}

} // namespace ql::impl
