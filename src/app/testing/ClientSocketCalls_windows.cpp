// SPDX-License-Identifier: MIT
#include "app/testing/ClientSocketCalls.h"

#include <cstring>

#include <winsock2.h>

#include <ws2tcpip.h>

namespace vireo::impl {

namespace {

SOCKET native(std::uintptr_t socket) {
    return static_cast<SOCKET>(socket);
}

TransferResult resultOf(int count) {
    using Outcome = TransferResult::Outcome;
    if (count >= 0) {
        return {Outcome::Done, static_cast<std::size_t>(count)};
    }
    return {WSAGetLastError() == WSAEWOULDBLOCK ? Outcome::WouldBlock : Outcome::Broken, 0};
}

/// What one call takes: its sizes are ints.
int sizeOf(std::size_t bytes) {
    constexpr std::size_t Largest = 1048576;
    return static_cast<int>(bytes < Largest ? bytes : Largest);
}

short eventsOf(SocketReady what) {
    switch (what) {
    case SocketReady::ToReceive:
        return POLLRDNORM;
    case SocketReady::ToSend:
        return POLLWRNORM;
    case SocketReady::ToEither:
        break;
    }
    return POLLRDNORM | POLLWRNORM;
}

} // namespace

std::vector<NativeAddress> addressesOf(const std::string& host, const std::string& port) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    std::vector<NativeAddress> addresses;
    if (::getaddrinfo(host.c_str(), port.c_str(), &wanted, &found) == 0) {
        for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
            const char* const bytes = reinterpret_cast<const char*>(entry->ai_addr);
            addresses.emplace_back(bytes, bytes + entry->ai_addrlen);
        }
        ::freeaddrinfo(found);
    }
    return addresses;
}

std::optional<std::uintptr_t> beginConnection(const NativeAddress& address) {
    sockaddr_storage storage{};
    std::memcpy(&storage, address.data(), address.size());
    const SOCKET socket = ::socket(storage.ss_family, SOCK_STREAM, IPPROTO_TCP);
    if (socket == INVALID_SOCKET) {
        return std::nullopt;
    }
    const char on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    u_long nonBlocking = 1;
    ::ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking);
    const auto* const target = reinterpret_cast<const sockaddr*>(&storage);
    if (::connect(socket, target, static_cast<int>(address.size())) != 0 && WSAGetLastError() != WSAEWOULDBLOCK) {
        ::closesocket(socket);
        return std::nullopt;
    }
    return static_cast<std::uintptr_t>(socket);
}

bool isConnected(std::uintptr_t socket) {
    int error = 0;
    int size = sizeof error;
    return ::getsockopt(native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) == 0 &&
           error == 0;
}

TransferResult sendSome(std::uintptr_t socket, std::string_view bytes) {
    return resultOf(::send(native(socket), bytes.data(), sizeOf(bytes.size()), 0));
}

TransferResult receiveSome(std::uintptr_t socket, std::span<char> room) {
    return resultOf(::recv(native(socket), room.data(), sizeOf(room.size()), 0));
}

bool awaitSocket(std::uintptr_t socket, SocketReady what, std::chrono::milliseconds time) {
    WSAPOLLFD entry{native(socket), eventsOf(what), 0};
    return ::WSAPoll(&entry, 1, static_cast<int>(time.count())) > 0;
}

void closeSocket(std::uintptr_t socket, bool withReset) {
    if (withReset) {
        const linger atOnce{1, 0};
        ::setsockopt(native(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce), sizeof atOnce);
    }
    ::closesocket(native(socket));
}

} // namespace vireo::impl
