// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include <NativeSockets.h>

namespace ql::impl {

/// The IPv4 address to listen on: of the loopback interface, or of every one.
inline sockaddr_in listenAddress(std::uint16_t port, bool onAllInterfaces) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(onAllInterfaces ? INADDR_ANY : INADDR_LOOPBACK);
    return address;
}

} // namespace ql::impl
