// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

struct MHD_Connection;
struct MHD_Daemon;
struct sockaddr;

// The calls that wake a daemon thread. Any thread, but not while the daemon is stopped.

namespace ql::impl {

/// Has the engine take up a suspended connection.
void resumeInEngine(MHD_Connection* connection);

/// Gives the engine a connection.
/// @return false when it does not take it; it has closed it then.
bool addToEngine(MHD_Daemon* daemon, std::uint64_t socket, const sockaddr* address, std::size_t addressSize);

} // namespace ql::impl
