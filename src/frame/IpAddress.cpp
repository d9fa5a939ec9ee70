#include "vireo/support/IpAddress.h"

#include <NativeSockets.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace ql {

bool IpAddress::fromIP(const sockaddr* address) {
    *this = IpAddress();
    if (address == nullptr) {
        return false;
    }
    // Copied out, because the caller's memory need not be aligned for the wider type.
    if (address->sa_family == AF_INET) {
        sockaddr_in ipv4{};
        std::memcpy(&ipv4, address, sizeof(ipv4));
        std::memcpy(bytes_.data(), &ipv4.sin_addr, sizeof(ipv4.sin_addr));
        family_ = Family::IPv4;
    } else if (address->sa_family == AF_INET6) {
        sockaddr_in6 ipv6{};
        std::memcpy(&ipv6, address, sizeof(ipv6));
        std::memcpy(bytes_.data(), &ipv6.sin6_addr, sizeof(ipv6.sin6_addr));
        scope_ = ipv6.sin6_scope_id;
        family_ = Family::IPv6;
    }
    return !isEmpty();
}

bool IpAddress::isEmpty() const {
    return family_ == Family::None;
}

bool IpAddress::isLoopback() const {
    switch (family_) {
    case Family::None:
        return false;
    case Family::IPv4:
        return bytes_[0] == 127;
    case Family::IPv6:
        return bytes_[15] == 1 && std::all_of(bytes_.begin(), bytes_.end() - 1, [](std::uint8_t b) { return b == 0; });
    }
    return false;
}

std::string IpAddress::toString() const {
    if (isEmpty()) {
        return {};
    }
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(family_ == Family::IPv4 ? AF_INET : AF_INET6, bytes_.data(), text, sizeof(text));
    return scope_ == 0 ? text : std::string(text) + "%" + std::to_string(scope_);
}

} // namespace ql
