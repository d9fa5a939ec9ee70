// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

namespace ql::impl {

/// The descriptors that a service manager has passed to this process, which are kept from processes that it starts.
std::vector<std::uint64_t> inheritedSockets();

} // namespace ql::impl
