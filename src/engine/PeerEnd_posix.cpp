#include "engine/PeerEnd.h"

#include <NativeSockets.h>

namespace ql::impl {

void showPeerEnd([[maybe_unused]] std::uint64_t socket) {
// Where the system cannot be asked so, the engine has no edge-triggered polling either, and misses nothing.
#ifdef POLLRDHUP
    NativePollEntry entry{static_cast<int>(socket), POLLRDHUP, 0};
    if (::poll(&entry, 1, 0) == 1 && (entry.revents & POLLRDHUP) != 0) {
        ::shutdown(entry.fd, SHUT_RD);
    }
#endif
}

void shutSocket(std::uint64_t socket) {
    ::shutdown(static_cast<int>(socket), SHUT_RDWR);
}

} // namespace ql::impl
