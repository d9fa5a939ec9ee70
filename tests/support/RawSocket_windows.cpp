#include "support/RawSocket.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "platform/windows/NativeSockets.h"

#include <windows.h>

#include <psapi.h>

namespace vireotest {

namespace {

/// Brings the sockets up for the life of the test program, whatever the library does meanwhile.
const bool socketsStarted = [] {
    WSADATA data{};
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}();

SOCKET native(std::uintptr_t handle) {
    return static_cast<SOCKET>(handle);
}

struct Address {
    sockaddr_storage storage{};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

template <typename Native>
Address addressFrom(const Native& native) {
    Address address;
    std::memcpy(&address.storage, &native, sizeof native);
    address.size = sizeof native;
    return address;
}

Address addressOf(const std::string& host, std::uint16_t port) {
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = htons(port);
    if (inet_pton(AF_INET, host.c_str(), &ipv4.sin_addr) == 1) {
        return addressFrom(ipv4);
    }
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(port);
    if (inet_pton(AF_INET6, host.c_str(), &ipv6.sin6_addr) == 1) {
        return addressFrom(ipv6);
    }
    throw std::invalid_argument("not an address: " + host);
}

/// @return false when the deadline passes first.
bool waitFor(SOCKET socket, short events, Deadline deadline) {
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        WSAPOLLFD entry{socket, events, 0};
        if (WSAPoll(&entry, 1, static_cast<int>(left.count())) > 0) {
            return true;
        }
    }
}

int chunkSize(std::size_t size) {
    constexpr std::size_t Largest = 1U << 20U;
    return static_cast<int>(size < Largest ? size : Largest);
}

void setOption(SOCKET socket, int level, int option, int value) {
    setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof value);
}

} // namespace

RawSocket::~RawSocket() {
    close();
}

RawSocket::RawSocket(RawSocket&& other) noexcept : handle_(std::exchange(other.handle_, Closed)) {}

RawSocket& RawSocket::operator=(RawSocket&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
}

RawSocket RawSocket::Connect(const std::string& host, std::uint16_t port, int receiveBufferBytes) {
    const Address address = addressOf(host, port);
    const SOCKET socket =
        socketsStarted ? ::socket(address.get()->sa_family, SOCK_STREAM, IPPROTO_TCP) : INVALID_SOCKET;
    if (socket == INVALID_SOCKET) {
        throw std::runtime_error("no socket");
    }
    setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    if (receiveBufferBytes != 0) {
        setOption(socket, SOL_SOCKET, SO_RCVBUF, receiveBufferBytes);
    }
    RawSocket connected(static_cast<std::uintptr_t>(socket));
    if (::connect(socket, address.get(), address.size) != 0) {
        return {};
    }
    u_long nonBlocking = 1;
    ioctlsocket(socket, static_cast<long>(FIONBIO), &nonBlocking);
    return connected;
}

RawSocket::Result RawSocket::send(const char* data, std::size_t size, Deadline deadline) {
    while (isOpen()) {
        const int sent = ::send(native(handle_), data, chunkSize(size), 0);
        if (sent >= 0) {
            return {Status::Done, static_cast<std::size_t>(sent)};
        }
        if (WSAGetLastError() != WSAEWOULDBLOCK) {
            break;
        }
        if (!waitFor(native(handle_), POLLWRNORM, deadline)) {
            return {Status::TimedOut, 0};
        }
    }
    return {Status::Broken, 0};
}

RawSocket::Result RawSocket::receive(char* data, std::size_t size, Deadline deadline) {
    while (isOpen()) {
        const int received = ::recv(native(handle_), data, chunkSize(size), 0);
        if (received >= 0) {
            return {received == 0 ? Status::End : Status::Done, static_cast<std::size_t>(received)};
        }
        if (WSAGetLastError() != WSAEWOULDBLOCK) {
            break;
        }
        if (!waitFor(native(handle_), POLLRDNORM, deadline)) {
            return {Status::TimedOut, 0};
        }
    }
    return {Status::Broken, 0};
}

void RawSocket::endSending() {
    ::shutdown(native(handle_), SD_SEND);
}

void RawSocket::reset() {
    const linger atOnce{1, 0};
    setsockopt(native(handle_), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&atOnce), sizeof atOnce);
    close();
}

void RawSocket::close() {
    if (isOpen()) {
        closesocket(native(std::exchange(handle_, Closed)));
    }
}

bool hasIPv6() {
    const Address address = addressOf("::1", 0);
    const SOCKET socket = socketsStarted ? ::socket(AF_INET6, SOCK_STREAM, IPPROTO_TCP) : INVALID_SOCKET;
    const bool isThere = ::bind(socket, address.get(), address.size) == 0;
    closesocket(socket);
    return isThere;
}

bool isPortFree(std::uint16_t port) {
    const Address address = addressOf("127.0.0.1", port);
    const SOCKET socket =
        socketsStarted ? ::socket(address.get()->sa_family, SOCK_STREAM, IPPROTO_TCP) : INVALID_SOCKET;
    setOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
    const bool isFree = ::bind(socket, address.get(), address.size) == 0;
    closesocket(socket);
    return isFree;
}

bool isEndOfSendingAHangUp() {
    return true;
}

bool allowDescriptors(std::size_t /*count*/) {
    return true;
}

unsigned long currentProcessId() {
    return GetCurrentProcessId();
}

std::uint64_t residentMemoryBytes() {
    PROCESS_MEMORY_COUNTERS counters{};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.WorkingSetSize;
}

std::size_t openHandles() {
    DWORD count = 0;
    GetProcessHandleCount(GetCurrentProcess(), &count);
    return count;
}

void letBrokenPipesKill() {}

} // namespace vireotest
