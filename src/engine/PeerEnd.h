// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// What is done to a connection from beside the engine, which must not have closed the socket.

namespace ql::impl {

/// Makes the engine look at a connection whose peer has ended its sending. Where it learns of bytes and of their end at
/// once, it would read the bytes and wait for more. Nothing is lost by it, and it may be repeated.
void showPeerEnd(std::uint64_t socket);

/// Ends a connection in both directions, so that the engine sees it broken.
void shutSocket(std::uint64_t socket);

} // namespace ql::impl
