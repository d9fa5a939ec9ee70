#include "app/middleware/NetworkName.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace vireo::impl {

namespace {

constexpr std::size_t AllGroups = 8;
constexpr std::size_t NetworkGroups = 4;

} // namespace

std::string networkName(const ql::IpAddress& address) {
    static const ql::IpAddress AnyIpv4 = ql::IpAddress::Parse("0.0.0.0").value();
    if (address.isEmpty()) {
        return "unix:";
    }
    const std::string text = address.toString();
    if (address.isWithin(AnyIpv4, 0)) {
        return text.substr(text.rfind(':') + 1);
    }
    std::vector<std::string_view> groups;
    std::size_t gap = 0;
    std::string_view rest = std::string_view(text).substr(0, text.find('%'));
    // An IPv4 address at the end stands for two groups.
    std::size_t count = rest.find('.') == std::string_view::npos ? 0 : 1;
    for (bool isMore = true; isMore;) {
        const std::size_t colon = rest.find(':');
        isMore = colon != std::string_view::npos;
        if (colon == 0 || rest.empty()) {
            gap = groups.size();
        } else {
            groups.push_back(rest.substr(0, colon));
        }
        rest.remove_prefix(isMore ? colon + 1 : rest.size());
    }
    count += groups.size();
    const std::size_t zeros = AllGroups - count;
    std::string name;
    for (std::size_t i = 0; i < NetworkGroups; ++i) {
        const bool isZero = i >= gap && i < gap + zeros;
        name += isZero ? "0" : std::string(groups[i < gap ? i : i - zeros]);
        name += ':';
    }
    return name;
}

} // namespace vireo::impl
