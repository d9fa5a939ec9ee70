// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql::impl {

/// Makes the engine see that the peer of a socket has ended its sending, if it has. Where the engine learns of bytes
/// and of their end at once, it would read the bytes and wait for more. Not for a request that is complete: its
/// connection would be taken for broken. The engine must not have closed the socket.
void showPeerEnd(std::uint64_t socket);

/// Ends a connection in both directions, so that the engine sees it broken. The engine must not have closed the socket.
void shutSocket(std::uint64_t socket);

} // namespace ql::impl
