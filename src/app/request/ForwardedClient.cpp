#include "app/request/ForwardedClient.h"

#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <system_error>

namespace vireo::impl {

namespace {

unsigned int widthOf(const ql::IpAddress& address) {
    return address.getFamily() == ql::IpAddress::Family::IPv4 ? 32 : 128;
}

/// An address as proxies write it: some add the port, and put brackets around IPv6 addresses.
std::optional<ql::IpAddress> parseHop(std::string_view text) {
    if (!text.empty() && text.front() == '[') {
        const std::size_t end = text.find(']');
        const bool isEnd = end != std::string_view::npos && (end + 1 == text.size() || text[end + 1] == ':');
        return isEnd ? ql::IpAddress::Parse(text.substr(1, end - 1)) : std::nullopt;
    }
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos && text.find(':', colon + 1) == std::string_view::npos) {
        text = text.substr(0, colon);
    }
    return ql::IpAddress::Parse(text);
}

} // namespace

ProxyRules::ProxyRules(const std::vector<std::string>& networks) {
    for (const std::string& network : networks) {
        if (network == "unix:") {
            areLocalSocketsTrusted_ = true;
            continue;
        }
        const std::string_view text = network;
        const std::size_t slash = text.find('/');
        const std::optional<ql::IpAddress> address = ql::IpAddress::Parse(text.substr(0, slash));
        unsigned int bits = address ? widthOf(*address) : 0;
        bool isRight = address.has_value();
        if (isRight && slash != std::string_view::npos) {
            const unsigned int width = bits;
            const std::string_view number = text.substr(slash + 1);
            const char* const end = number.data() + number.size();
            const auto [parsed, error] = std::from_chars(number.data(), end, bits);
            isRight = parsed == end && error == std::errc() && bits <= width;
        }
        if (!isRight) {
            ql::impl::throwInvalidArgument("\"" + network +
                                           "\" is no network of proxies, such as 10.0.0.0/8, ::1 or unix:");
        }
        networks_.push_back({*address, bits});
    }
}

bool ProxyRules::isTrusted(const ql::IpAddress& peer) const {
    if (peer.isEmpty()) {
        return areLocalSocketsTrusted_;
    }
    return std::ranges::any_of(networks_, [&peer](const Network& n) { return peer.isWithin(n.address, n.bits); });
}

ql::IpAddress findForwardedClient(std::span<const ql::HeaderLine> lines, const ql::IpAddress& peer,
                                  const ProxyRules& proxies) {
    ql::IpAddress client = peer;
    for (std::size_t i = lines.size(); i > 0; --i) {
        if (!ql::impl::isSameWord(lines[i - 1].name, "X-Forwarded-For")) {
            continue;
        }
        std::string_view rest = lines[i - 1].value;
        for (bool isMore = true; isMore;) {
            if (!proxies.isTrusted(client)) {
                return client;
            }
            const std::size_t comma = rest.rfind(',');
            isMore = comma != std::string_view::npos;
            const std::optional<ql::IpAddress> hop =
                parseHop(ql::impl::withoutBlanks(isMore ? rest.substr(comma + 1) : rest));
            if (!hop) {
                return client;
            }
            client = *hop;
            rest = rest.substr(0, isMore ? comma : 0);
        }
    }
    return client;
}

} // namespace vireo::impl
