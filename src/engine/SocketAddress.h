// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <NativeSockets.h>

namespace ql::impl {

/// The address of one end of a connection, or to listen on, of any family that the system's sockets have.
class SocketAddress {
public:
    /// None.
    SocketAddress() = default;
    SocketAddress(const sockaddr* address, socklen_t size);
    /// Only the family of one that is neither IPv4 nor IPv6.
    static SocketAddress Copy(const sockaddr* address);

    /// @param numbers an IPv4 or IPv6 address, the latter with or without the name of a link.
    /// @return none when it is neither.
    static std::optional<SocketAddress> Parse(const std::string& numbers, std::uint16_t port);
    /// Every IPv6 address.
    static SocketAddress AnyIPv6(std::uint16_t port);
    /// Of this end of a socket; none when the system does not tell.
    static SocketAddress OfSocket(std::uint64_t socket);

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage_); }
    socklen_t size() const { return size_; }
    int family() const { return storage_.ss_family; }

    /// For the system to fill in: gives the room's size.
    ///@{
    sockaddr* edit() {
        size_ = sizeof storage_;
        return reinterpret_cast<sockaddr*>(&storage_);
    }
    socklen_t* editSize() { return &size_; }
    ///@}

    /// 0 where there is none.
    std::uint16_t port() const;

    /// What a limit for each client counts: an IPv4 address, or the first half of an IPv6 address, since a client has
    /// all of them that begin so. None for Unix sockets.
    std::optional<std::uint64_t> clientKey() const;

    /// Makes an IPv4 address that was mapped into IPv6, as a socket for both shows it, one of IPv4.
    void unmap();

private:
    sockaddr_in toIPv4() const;
    sockaddr_in6 toIPv6() const;

    sockaddr_storage storage_{};
    socklen_t size_ = 0;
};

} // namespace ql::impl
