#include "engine/LingeringSocket.h"

#include "engine/Listener.h"
#include "websocket/SocketPort.h"

#include <utility>

namespace ql::impl {

LingeringSocket::LingeringSocket(std::uint64_t socket) noexcept : socket_(duplicateSocket(socket)) {
    if (isOpen()) {
        endSending(socket_);
    }
}

LingeringSocket::~LingeringSocket() {
    if (isOpen()) {
        closeSocket(socket_);
    }
}

LingeringSocket::LingeringSocket(LingeringSocket&& other) noexcept
    : socket_(std::exchange(other.socket_, InvalidSocket)) {}

LingeringSocket& LingeringSocket::operator=(LingeringSocket&& other) noexcept {
    std::swap(socket_, other.socket_);
    return *this;
}

bool LingeringSocket::isOpen() const {
    return socket_ != InvalidSocket;
}

} // namespace ql::impl
