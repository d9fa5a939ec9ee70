#include "engine/UpgradeHandle.h"

#include "engine/OwnSocket.h"
#include "engine/PeerEnd.h"
#include "websocket/SocketPort.h"

#include <microhttpd.h>

namespace ql::impl {

namespace {

void closeThroughEngine(void* upgradeHandle) {
    MHD_upgrade_action(static_cast<MHD_UpgradeResponseHandle*>(upgradeHandle), MHD_UPGRADE_ACTION_CLOSE);
}

} // namespace

std::atomic<UpgradeCloser> upgradeCloser{&closeThroughEngine};

void closeUpgradedConnection(void* upgradeHandle, std::uint64_t connection) {
    const OwnSocket own = connection == InvalidSocket ? OwnSocket() : OwnSocket::DuplicateOf(connection);
    upgradeCloser.load(std::memory_order_acquire)(upgradeHandle);
    if (own.isOpen()) {
        // The engine shuts the application's socket before it notes that the connection is to be closed. Its thread may
        // look in between, and not again before the peer sends something.
        showPeerEnd(own.socket());
    }
}

} // namespace ql::impl
