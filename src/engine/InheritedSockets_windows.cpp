#include "engine/InheritedSockets.h"

namespace ql::impl {

// The system has no such custom.
std::vector<std::uint64_t> inheritedSockets() {
    return {};
}

} // namespace ql::impl
