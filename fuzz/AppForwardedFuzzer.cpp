// Who has sent a request through proxies, beside a reading that makes a list of all hops first.
//
// An input is a byte, who the peer is, and lines of X-Forwarded-For.

#include "Check.h"
#include "ModelText.h"
#include "app/request/ForwardedClient.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using ql::IpAddress;

/// Without the port and the brackets that some proxies write.
std::optional<IpAddress> addressOf(const std::string& hop) {
    if (hop.starts_with('[')) {
        const std::size_t end = hop.find(']');
        if (end == std::string::npos || (end + 1 < hop.size() && hop[end + 1] != ':')) {
            return std::nullopt;
        }
        return IpAddress::Parse(hop.substr(1, end - 1));
    }
    return IpAddress::Parse(std::count(hop.begin(), hop.end(), ':') == 1 ? hop.substr(0, hop.find(':')) : hop);
}

bool isTrusted(const IpAddress& address) {
    static const IpAddress Ten = *IpAddress::Parse("10.0.0.0");
    static const IpAddress Own = *IpAddress::Parse("fd00::");
    return address.isWithin(Ten, 8) || address.isWithin(Own, 8);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const vireo::impl::ProxyRules Rules({"10.0.0.0/8", "fd00::/8"});
    static const std::vector<IpAddress> Peers{*IpAddress::Parse("10.1.2.3"), *IpAddress::Parse("192.0.2.1"),
                                              *IpAddress::Parse("fd00::1")};
    if (size == 0) {
        return 0;
    }
    const IpAddress& peer = Peers[data[0] % Peers.size()];
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::vector<ql::HeaderLine> lines;
    std::vector<std::string> hops;
    for (const std::string_view line : split(text, '\n')) {
        lines.push_back({lines.size() % 2 == 0 ? "X-Forwarded-For" : "x-forwarded-for", line});
        for (const std::string_view hop : split(line, ',')) {
            hops.emplace_back(trimmed(hop));
        }
    }
    IpAddress expected = peer;
    for (std::size_t i = hops.size(); i > 0 && isTrusted(expected); --i) {
        const std::optional<IpAddress> hop = addressOf(hops[i - 1]);
        if (!hop) {
            break;
        }
        expected = *hop;
    }
    check(vireo::impl::findForwardedClient(lines, peer, Rules) == expected, "another client");
    return 0;
}
