#include "engine/LingeringSocket.h"

#include "websocket/SocketPort.h"

#include <NativeSockets.h>
#include <WindowsHeaders.h>

#include <utility>

namespace ql::impl {

namespace {

std::uint64_t duplicate(SOCKET socket) {
    WSAPROTOCOL_INFOW info{};
    if (::WSADuplicateSocketW(socket, ::GetCurrentProcessId(), &info) != 0) {
        return InvalidSocket;
    }
    return static_cast<std::uint64_t>(::WSASocketW(FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO, &info, 0,
                                                   WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
}

} // namespace

LingeringSocket::LingeringSocket(std::uint64_t socket) noexcept : socket_(duplicate(static_cast<SOCKET>(socket))) {
    if (isOpen()) {
        u_long nonBlocking = 1;
        ::ioctlsocket(static_cast<SOCKET>(socket_), static_cast<long>(FIONBIO), &nonBlocking);
        ::shutdown(static_cast<SOCKET>(socket_), SD_SEND);
    }
}

LingeringSocket::~LingeringSocket() {
    if (isOpen()) {
        ::closesocket(static_cast<SOCKET>(socket_));
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
