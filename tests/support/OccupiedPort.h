#pragma once

#include <NativeSockets.h>

#include <cstdint>
#include <stdexcept>

namespace vireotest {

/// A port of the loopback interface that is taken until the process ends.
inline std::uint16_t occupiedPort() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const auto listener = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), length) != 0 || ::listen(listener, 1) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("no port to occupy");
    }
    return ntohs(address.sin_port);
}

} // namespace vireotest
