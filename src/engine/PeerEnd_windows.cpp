#include "engine/PeerEnd.h"

#include <NativeSockets.h>

namespace ql::impl {

// WSAPoll() reports the end again and again: the engine misses nothing. And no more receiving would reset a connection
// whose bytes still wait.
void showPeerEnd(std::uint64_t /*socket*/) {}

void shutSocket(std::uint64_t socket) {
    ::shutdown(static_cast<SOCKET>(socket), SD_BOTH);
}

} // namespace ql::impl
