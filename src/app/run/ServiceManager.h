// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace vireo::impl {

/// Tells the service manager that has started this process, by the socket in the environment variable NOTIFY_SOCKET,
/// how the service is: "READY=1". Without one nobody is told; one that does not listen is left alone.
void tellServiceManager(const std::string& state);

/// The state of a service that begins to read its files anew, with the time of it.
std::string reloadingState();

} // namespace vireo::impl
