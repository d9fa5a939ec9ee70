#include "engine/PeerEnd.h"

#include <NativeSockets.h>

namespace ql::impl {

void showPeerEnd(std::uint64_t socket) {
    // What has arrived can be read all the same. For edge-triggered polling it is a new edge.
    ::shutdown(static_cast<int>(socket), SHUT_RD);
}

void shutSocket(std::uint64_t socket) {
    ::shutdown(static_cast<int>(socket), SHUT_RDWR);
}

} // namespace ql::impl
