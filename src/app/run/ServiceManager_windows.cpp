// SPDX-License-Identifier: MIT
#include "app/run/ServiceManager.h"

namespace vireo::impl {

void tellServiceManager(const std::string& /*state*/) {}

std::string reloadingState() {
    return "RELOADING=1";
}

} // namespace vireo::impl
