#include "engine/OwnSocket.h"

#include <fcntl.h>

namespace ql::impl {

std::uint64_t duplicateSocket(std::uint64_t socket) noexcept {
    // Whether it blocks goes with the connection.
    return static_cast<std::uint64_t>(::fcntl(static_cast<int>(socket), F_DUPFD_CLOEXEC, 0));
}

} // namespace ql::impl
