#include "engine/UpgradeHandle.h"

#include "engine/OwnSocket.h"
#include "engine/PeerEnd.h"
#include "frame/NeverDestroyed.h"
#include "vireo/support/qlMutex.h"
#include "websocket/SocketPort.h"

#include <array>
#include <cstddef>

#include <microhttpd.h>

namespace ql::impl {

namespace {

void closeThroughEngine(void* upgradeHandle) {
    MHD_upgrade_action(static_cast<MHD_UpgradeResponseHandle*>(upgradeHandle), MHD_UPGRADE_ACTION_CLOSE);
}

/// One for each connection, and some for others as well.
qlMutex& closingOf(std::uint64_t connection) {
    constexpr std::size_t Count = 61;
    static NeverDestroyed<std::array<qlMutex, Count>> mutexes;
    return (*mutexes)[static_cast<std::size_t>(connection % Count)];
}

/// How many connections the engine stands between have been closed.
std::atomic<std::uint64_t> closings{0};

} // namespace

std::atomic<UpgradeCloser> upgradeCloser{&closeThroughEngine};

void closeUpgradedConnection(void* upgradeHandle, std::uint64_t connection) {
    const UpgradeCloser close = upgradeCloser.load(std::memory_order_acquire);
    if (connection == InvalidSocket) {
        close(upgradeHandle);
        return;
    }
    const OwnSocket own = OwnSocket::DuplicateOf(connection);
    {
        const qlMutexLocker locker(closingOf(connection));
        closings.fetch_add(1, std::memory_order_release);
        close(upgradeHandle);
    }
    if (own.isOpen()) {
        // The engine shuts the application's socket before it notes that the connection is to be closed. Its thread may
        // look in between, and not again before the peer sends something.
        showPeerEnd(own.socket());
    }
}

void followUpgradeClosers() noexcept {
    (void)closings.load(std::memory_order_acquire);
}

void awaitUpgradeClosers(std::uint64_t connection) {
    const qlMutexLocker locker(closingOf(connection));
}

} // namespace ql::impl
