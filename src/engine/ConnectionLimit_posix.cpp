#include "engine/ConnectionLimit.h"

#include <algorithm>

#include <sys/resource.h>

namespace ql::impl {

std::size_t connectionLimit() {
    // Also where there is no limit.
    constexpr rlim_t MostConnections = 1000000;
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) != 0 || descriptors.rlim_cur == RLIM_INFINITY) {
        descriptors.rlim_cur = MostConnections;
    }
    return static_cast<std::size_t>(std::min(descriptors.rlim_cur - descriptors.rlim_cur / 8, MostConnections));
}

} // namespace ql::impl
