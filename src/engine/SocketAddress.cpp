#include "engine/SocketAddress.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace ql::impl {

namespace {

constexpr std::size_t PrefixBytes = 8;
/// Begins the keys of IPv4 addresses; no client has an IPv6 address that begins so, for those are multicast.
constexpr std::uint64_t IPv4Key = 0xffff000000000000;

template <typename Address>
SocketAddress fromNative(const Address& address) {
    return {reinterpret_cast<const sockaddr*>(&address), sizeof address};
}

} // namespace

SocketAddress::SocketAddress(const sockaddr* address, socklen_t size)
    : size_(std::min<socklen_t>(size, sizeof storage_)) {
    if (size_ > 0) {
        std::memcpy(&storage_, address, static_cast<std::size_t>(size_));
    }
}

SocketAddress SocketAddress::Copy(const sockaddr* address) {
    switch (address->sa_family) {
    case AF_INET:
        return {address, sizeof(sockaddr_in)};
    case AF_INET6:
        return {address, sizeof(sockaddr_in6)};
    default:
        break;
    }
    SocketAddress other;
    // The systems differ in the type's sign.
    other.storage_.ss_family = static_cast<decltype(other.storage_.ss_family)>(address->sa_family);
    return other;
}

std::optional<SocketAddress> SocketAddress::Parse(const std::string& numbers, std::uint16_t port) {
    if (numbers.find(':') == std::string::npos) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        if (::inet_pton(AF_INET, numbers.c_str(), &address.sin_addr) != 1) {
            return std::nullopt;
        }
        return fromNative(address);
    }
    // Windows takes the brackets of a URL's host for a part of it.
    if (numbers.front() == '[') {
        return std::nullopt;
    }
    // It knows the names of links.
    addrinfo hints{};
    hints.ai_family = AF_INET6;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (::getaddrinfo(numbers.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        return std::nullopt;
    }
    const SocketAddress address(found->ai_addr, static_cast<socklen_t>(found->ai_addrlen));
    ::freeaddrinfo(found);
    return address;
}

SocketAddress SocketAddress::AnyIPv6(std::uint16_t port) {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    return fromNative(address);
}

std::uint16_t SocketAddress::port() const {
    switch (family()) {
    case AF_INET:
        return ntohs(toIPv4().sin_port);
    case AF_INET6:
        return ntohs(toIPv6().sin6_port);
    default:
        return 0;
    }
}

std::optional<std::uint64_t> SocketAddress::clientKey() const {
    if (family() == AF_INET) {
        return IPv4Key | toIPv4().sin_addr.s_addr;
    }
    if (family() == AF_INET6) {
        const sockaddr_in6 address = toIPv6();
        std::uint64_t prefix = 0;
        for (std::size_t i = 0; i < PrefixBytes; ++i) {
            prefix = prefix << 8U | address.sin6_addr.s6_addr[i];
        }
        return prefix;
    }
    return std::nullopt;
}

void SocketAddress::unmap() {
    if (family() != AF_INET6) {
        return;
    }
    const sockaddr_in6 mapped = toIPv6();
    if (!IN6_IS_ADDR_V4MAPPED(&mapped.sin6_addr)) {
        return;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = mapped.sin6_port;
    constexpr std::size_t MappedOffset = 12;
    std::memcpy(&address.sin_addr, mapped.sin6_addr.s6_addr + MappedOffset, sizeof address.sin_addr);
    *this = fromNative(address);
}

sockaddr_in SocketAddress::toIPv4() const {
    sockaddr_in address{};
    std::memcpy(&address, &storage_, sizeof address);
    return address;
}

sockaddr_in6 SocketAddress::toIPv6() const {
    sockaddr_in6 address{};
    std::memcpy(&address, &storage_, sizeof address);
    return address;
}

SocketAddress SocketAddress::OfSocket(std::uint64_t socket) {
    using NativeSocket = decltype(::socket(0, 0, 0));
    SocketAddress address;
    if (::getsockname(static_cast<NativeSocket>(socket), address.edit(), address.editSize()) != 0) {
        return {};
    }
    return address;
}

} // namespace ql::impl
