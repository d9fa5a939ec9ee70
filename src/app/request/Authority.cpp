#include "app/request/Authority.h"

#include "frame/HttpSyntax.h"

#include <cstddef>

namespace vireo::impl {

namespace {

constexpr std::string_view Digits = "0123456789";
constexpr std::string_view HostCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._~%-";
constexpr std::string_view AddressCharacters = "ABCDEFabcdef0123456789.:";

struct Origin {
    std::string_view scheme;
    Authority authority;
};

std::optional<Origin> parseOrigin(std::string_view text) {
    constexpr std::string_view Mark = "://";
    const std::size_t mark = text.find(Mark);
    if (mark == std::string_view::npos || !ql::impl::isToken(text.substr(0, mark))) {
        return std::nullopt;
    }
    const std::optional<Authority> authority = Authority::Parse(text.substr(mark + Mark.size()));
    return authority ? std::optional(Origin{text.substr(0, mark), *authority}) : std::nullopt;
}

} // namespace

std::optional<Authority> Authority::Parse(std::string_view text) {
    const bool isBracketed = text.starts_with('[');
    // With the bracket at its end.
    const std::size_t size = isBracketed ? text.find(']') + 1 : text.find(':');
    Authority authority{text.substr(0, size), {}};
    std::string_view rest = text.substr(authority.host.size());
    if (rest.starts_with(':')) {
        authority.port = rest.substr(1);
        rest = {};
    }
    const std::string_view name = isBracketed && size > 1 ? text.substr(1, size - 2) : authority.host;
    const bool isRight =
        !name.empty() && rest.empty() &&
        name.find_first_not_of(isBracketed ? AddressCharacters : HostCharacters) == std::string_view::npos &&
        authority.port.find_first_not_of(Digits) == std::string_view::npos;
    return isRight ? std::optional(authority) : std::nullopt;
}

std::string_view Authority::portOf(std::string_view scheme) const {
    if (!port.empty()) {
        return port;
    }
    return ql::impl::isSameWord(scheme, "https") ? "443" : ql::impl::isSameWord(scheme, "http") ? "80" : "";
}

bool isOrigin(std::string_view text) {
    return parseOrigin(text).has_value();
}

bool isSameOrigin(std::string_view left, std::string_view right) {
    const std::optional<Origin> one = parseOrigin(left);
    const std::optional<Origin> other = parseOrigin(right);
    return one && other && ql::impl::isSameWord(one->scheme, other->scheme) &&
           ql::impl::isSameWord(one->authority.host, other->authority.host) &&
           one->authority.portOf(one->scheme) == other->authority.portOf(other->scheme);
}

} // namespace vireo::impl
