// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct sockaddr;

namespace ql {

/// An IPv4 or IPv6 address without a port, or none. Not synchronized.
class VIREO_API IpAddress {
public:
    /// The kind of address.
    enum class Family : std::uint8_t { None, IPv4, IPv6 };

    /// No address.
    IpAddress() = default;

    /// Reads what toString() writes, and the other text forms of IPv6 addresses; none for anything else, such as an
    /// address with a port.
    static std::optional<IpAddress> Parse(std::string_view text);

    /// Takes the address out of an AF_INET or AF_INET6 socket address; null or another family gives no address.
    /// @return true when there is an address now.
    bool fromIP(const sockaddr* address);

    /// None for no address.
    Family getFamily() const { return family_; }
    /// True when there is no address.
    bool isEmpty() const;

    /// True for 127.0.0.0/8 and ::1.
    bool isLoopback() const;

    /// Whether the first `bits` bits are the network's. An IPv4 address that an IPv6 socket shows (IPv4-mapped) is in
    /// the IPv4 networks; the link of an IPv6 address means nothing here.
    /// @param bits up to 32 for IPv4, 128 for IPv6; false for more, and for no address.
    bool isWithin(const IpAddress& network, unsigned int bits) const;

    /// Dotted decimal, or the text form of RFC 5952, as the system writes them; empty for no address. The link that an
    /// IPv6 address counts for follows by its number, as in "fe80::1%2" (RFC 4007).
    std::string toString() const;

    friend bool operator==(const IpAddress&, const IpAddress&) = default;

private:
    Family family_ = Family::None;
    /// Network byte order; an IPv4 address fills the first four bytes, the rest stays 0.
    std::array<std::uint8_t, 16> bytes_{};
    /// The link that an IPv6 address of limited scope counts for; else 0.
    std::uint32_t scope_ = 0;
};

} // namespace ql
