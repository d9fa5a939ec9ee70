#include "vireo/support/IpAddress.h"

#include <NativeSockets.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace ql {
namespace {

constexpr std::size_t GroupCount = 8;

std::string dottedDecimal(const std::uint8_t* bytes) {
    std::string text;
    for (std::size_t i = 0; i < 4; ++i) {
        if (i > 0) {
            text.push_back('.');
        }
        text.append(std::to_string(bytes[i]));
    }
    return text;
}

/// Lower-case hexadecimal without leading zeros.
std::string groupText(unsigned int group) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int shift = 16; shift > 0;) {
        shift -= 4;
        if (!text.empty() || shift == 0 || group >> shift != 0) {
            text.push_back(digits[group >> shift & 0xFU]);
        }
    }
    return text;
}

struct GroupRun {
    std::size_t start = GroupCount;
    std::size_t length = 0;
};

/// The longest run of at least two zero groups, the first of equal ones: what "::" stands for.
GroupRun findCompressedRun(const std::array<unsigned int, GroupCount>& groups) {
    GroupRun best;
    std::size_t at = 0;
    while (at < GroupCount) {
        std::size_t end = at;
        while (end < GroupCount && groups[end] == 0) {
            ++end;
        }
        if (end - at >= 2 && end - at > best.length) {
            best = {at, end - at};
        }
        at = end + 1;
    }
    return best;
}

} // namespace

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
        family_ = Family::IPv6;
    }
    return !isEmpty();
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
    if (family_ == Family::None) {
        return {};
    }
    if (family_ == Family::IPv4) {
        return dottedDecimal(bytes_.data());
    }

    std::array<unsigned int, GroupCount> groups{};
    for (std::size_t i = 0; i < GroupCount; ++i) {
        groups[i] = static_cast<unsigned int>(bytes_[2 * i] << 8 | bytes_[2 * i + 1]);
    }
    const bool mapped =
        std::all_of(groups.begin(), groups.begin() + 5, [](unsigned int g) { return g == 0; }) && groups[5] == 0xFFFF;
    if (mapped) {
        return "::ffff:" + dottedDecimal(&bytes_[12]);
    }

    const GroupRun run = findCompressedRun(groups);
    std::string text;
    std::size_t at = 0;
    while (at < GroupCount) {
        if (at == run.start) {
            text.append("::");
            at += run.length;
            continue;
        }
        if (!text.empty() && text.back() != ':') {
            text.push_back(':');
        }
        text.append(groupText(groups[at]));
        ++at;
    }
    return text;
}

} // namespace ql
