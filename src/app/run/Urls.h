// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ListenEndpoint.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vireo::impl {

/// Where a server can be reached that listens there: URLs, and "unix:/run/my.sock" for a Unix socket.
/// @param ports the real ones, 0 for a Unix socket.
std::vector<std::string> urlsOf(const std::vector<ql::http::ListenEndpoint>& listeners,
                                const std::vector<std::uint16_t>& ports);

} // namespace vireo::impl
