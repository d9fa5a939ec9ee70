// Hosts with ports and origins, as the toolkit reads them out of headers, beside a reading character by character.
//
// An input is two texts with a line feed between them.

#include "Check.h"
#include "ModelText.h"
#include "app/request/Authority.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace vireofuzz;
using vireo::impl::Authority;

bool isHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

struct Parts {
    std::string host;
    std::string port;
};

/// A host is a name or, in brackets, an IPv6 address; behind a colon there are digits, or none.
std::optional<Parts> readAuthority(std::string_view text) {
    enum class State { Begin, Name, Address, AfterAddress, Port } state = State::Begin;
    Parts parts;
    for (const char c : text) {
        if (state == State::Begin) {
            state = c == '[' ? State::Address : State::Name;
        } else if (state == State::Address && c == ']') {
            parts.host += c;
            state = State::AfterAddress;
            continue;
        }
        if (state == State::Port) {
            if (!isDigit(c)) {
                return std::nullopt;
            }
            parts.port += c;
        } else if ((state == State::Name || state == State::AfterAddress) && c == ':') {
            state = State::Port;
        } else if (state == State::AfterAddress) {
            return std::nullopt;
        } else {
            const bool isFirst = parts.host.empty();
            const bool isAllowed = state == State::Address ? isHex(c) || c == '.' || c == ':' || (isFirst && c == '[')
                                                           : isLetter(c) || isDigit(c) || c == '.' || c == '_' ||
                                                                 c == '~' || c == '%' || c == '-';
            if (!isAllowed) {
                return std::nullopt;
            }
            parts.host += c;
        }
    }
    const bool isComplete = state != State::Address && !parts.host.empty() && parts.host != "[]";
    return isComplete ? std::optional(parts) : std::nullopt;
}

/// What makes two origins the same; empty for what is none.
std::string readOrigin(std::string_view text) {
    const std::size_t mark = text.find("://");
    if (mark == std::string_view::npos || mark == 0) {
        return {};
    }
    const std::string scheme = lower(text.substr(0, mark));
    for (const char c : scheme) {
        if (!isLetter(c) && !isDigit(c) && std::string_view("!#$%&'*+-.^_`|~").find(c) == std::string_view::npos) {
            return {};
        }
    }
    const std::optional<Parts> parts = readAuthority(text.substr(mark + 3));
    if (!parts) {
        return {};
    }
    const std::string ownPort = scheme == "https" ? "443" : scheme == "http" ? "80" : "";
    return scheme + "\n" + lower(parts->host) + "\n" + (parts->port.empty() ? ownPort : parts->port);
}

void checkOne(std::string_view text) {
    const std::optional<Authority> authority = Authority::Parse(text);
    const std::optional<Parts> expected = readAuthority(text);
    check(authority.has_value() == expected.has_value(), "one is a host, and the other is none");
    if (authority) {
        check(authority->host == expected->host, "another host");
        check(authority->port == expected->port, "another port");
    }
    check(vireo::impl::isOrigin(text) == !readOrigin(text).empty(), "one is an origin, and the other is none");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::string_view left = input.substr(0, input.find('\n'));
    const std::string_view right = left.size() < input.size() ? input.substr(left.size() + 1) : left;
    checkOne(left);
    checkOne(right);
    const std::string origin = readOrigin(left);
    check(vireo::impl::isSameOrigin(left, right) == (!origin.empty() && origin == readOrigin(right)),
          "the same origin, or another");
    return 0;
}
