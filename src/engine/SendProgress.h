// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

namespace ql::impl {

// For a socket that the engine has not closed.

/// How many bytes the peer's system has confirmed since the connection began; nothing where the system does not tell.
std::optional<std::uint64_t> acknowledgedBytes(std::uint64_t socket);

/// Whether everything that was sent is with the other end's system; so where this one does not tell.
bool hasEverythingArrived(std::uint64_t socket);

/// What the peer has not taken is dropped when the socket is closed, instead of kept for it.
void dropUnsent(std::uint64_t socket);

} // namespace ql::impl
