#include "vireo/support/IpAddress.h"

#include <NativeSockets.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <string>
#include <system_error>

namespace ql {

namespace {

/// What stands before an IPv4 address that is written as an IPv6 one.
constexpr std::array<std::uint8_t, 12> MappedPrefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

} // namespace

std::optional<IpAddress> IpAddress::Parse(std::string_view text) {
    // The system reads up to the first NUL.
    if (text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    IpAddress address;
    const std::size_t percent = text.find('%');
    const std::string plain(text.substr(0, percent));
    if (inet_pton(AF_INET6, plain.c_str(), address.bytes_.data()) == 1) {
        address.family_ = Family::IPv6;
        if (percent != std::string_view::npos) {
            const std::string_view scope = text.substr(percent + 1);
            const char* const end = scope.data() + scope.size();
            const auto [parsed, error] = std::from_chars(scope.data(), end, address.scope_);
            if (parsed != end || error != std::errc()) {
                return std::nullopt;
            }
        }
        return address;
    }
    address = IpAddress();
    if (percent == std::string_view::npos && inet_pton(AF_INET, plain.c_str(), address.bytes_.data()) == 1) {
        address.family_ = Family::IPv4;
        return address;
    }
    return std::nullopt;
}

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

bool IpAddress::isWithin(const IpAddress& network, unsigned int bits) const {
    const std::uint8_t* bytes = bytes_.data();
    if (family_ == Family::IPv6 && network.family_ == Family::IPv4) {
        if (!std::equal(MappedPrefix.begin(), MappedPrefix.end(), bytes_.begin())) {
            return false;
        }
        bytes += MappedPrefix.size();
    } else if (family_ != network.family_) {
        return false;
    }
    if (isEmpty() || bits > (network.family_ == Family::IPv4 ? 32U : 128U)) {
        return false;
    }
    const std::size_t whole = bits / 8;
    const unsigned int rest = bits % 8;
    if (!std::equal(bytes, bytes + whole, network.bytes_.begin())) {
        return false;
    }
    return rest == 0 || (bytes[whole] ^ network.bytes_[whole]) >> (8 - rest) == 0;
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
