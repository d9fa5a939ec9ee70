// SPDX-License-Identifier: MIT
#include "app/testing/ClientSocketCalls.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vireo::impl {

namespace {

int fd(std::uintptr_t socket) {
    return static_cast<int>(socket);
}

TransferResult resultOf(ssize_t count) {
    using Outcome = TransferResult::Outcome;
    if (count >= 0) {
        return {Outcome::Done, static_cast<std::size_t>(count)};
    }
    return {errno == EAGAIN || errno == EINTR ? Outcome::WouldBlock : Outcome::Broken, 0};
}

short eventsOf(SocketReady what) {
    switch (what) {
    case SocketReady::ToReceive:
        return POLLIN;
    case SocketReady::ToSend:
        return POLLOUT;
    case SocketReady::ToEither:
        break;
    }
    return POLLIN | POLLOUT;
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
    const int socket = ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) {
        return std::nullopt;
    }
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const auto* const native = reinterpret_cast<const sockaddr*>(&storage);
    if (::connect(socket, native, static_cast<socklen_t>(address.size())) != 0 && errno != EINPROGRESS) {
        ::close(socket);
        return std::nullopt;
    }
    return static_cast<std::uintptr_t>(socket);
}

bool isConnected(std::uintptr_t socket) {
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(fd(socket), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

TransferResult sendSome(std::uintptr_t socket, std::string_view bytes) {
    return resultOf(::send(fd(socket), bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

TransferResult receiveSome(std::uintptr_t socket, std::span<char> room) {
    return resultOf(::recv(fd(socket), room.data(), room.size(), 0));
}

bool awaitSocket(std::uintptr_t socket, SocketReady what, std::chrono::milliseconds time) {
    pollfd entry{fd(socket), eventsOf(what), 0};
    return ::poll(&entry, 1, static_cast<int>(time.count())) > 0;
}

void closeSocket(std::uintptr_t socket, bool withReset) {
    if (withReset) {
        const linger atOnce{1, 0};
        ::setsockopt(fd(socket), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
    ::close(fd(socket));
}

} // namespace vireo::impl
