#include "engine/OwnSocket.h"

#include "engine/Listener.h"
#include "websocket/SocketPort.h"

#include <utility>

namespace ql::impl {

OwnSocket OwnSocket::DuplicateOf(std::uint64_t socket) noexcept {
    return OwnSocket(duplicateSocket(socket));
}

OwnSocket::~OwnSocket() {
    if (isOpen()) {
        closeSocket(socket_);
    }
}

OwnSocket::OwnSocket(OwnSocket&& other) noexcept : socket_(std::exchange(other.socket_, InvalidSocket)) {}

OwnSocket& OwnSocket::operator=(OwnSocket&& other) noexcept {
    std::swap(socket_, other.socket_);
    return *this;
}

bool OwnSocket::isOpen() const {
    return socket_ != InvalidSocket;
}

} // namespace ql::impl
