#include "engine/UpgradeHandle.h"

#include <microhttpd.h>

namespace ql::impl {

namespace {

void closeThroughEngine(void* upgradeHandle) {
    MHD_upgrade_action(static_cast<MHD_UpgradeResponseHandle*>(upgradeHandle), MHD_UPGRADE_ACTION_CLOSE);
}

} // namespace

std::atomic<UpgradeCloser> upgradeCloser{&closeThroughEngine};

void closeUpgradedConnection(void* upgradeHandle) {
    upgradeCloser.load(std::memory_order_acquire)(upgradeHandle);
}

} // namespace ql::impl
