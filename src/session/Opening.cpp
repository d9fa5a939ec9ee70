#include "session/Opening.h"

#include "frame/HttpSyntax.h"
#include "session/WebOrigin.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>

namespace ql::impl {

namespace {

constexpr std::string_view SupportedVersion = "13";

/// The values of all fields of this name.
std::vector<std::string_view> valuesOf(const RequestHead& head, std::string_view name) {
    std::vector<std::string_view> values;
    for (const auto& [fieldName, value] : head.fields) {
        if (isSameWord(fieldName, name)) {
            // Engine 0.9.75 keeps the blanks behind a value.
            values.push_back(withoutBlanks(value));
        }
    }
    return values;
}

/// Several fields of a name are one list (RFC 9110 section 5.3).
std::string joined(const std::vector<std::string_view>& values) {
    std::string list;
    for (const std::string_view value : values) {
        list.append(list.empty() ? "" : ", ").append(value);
    }
    return list;
}

/// @return false when there is something else than names, each of them once.
bool takeSubprotocols(const RequestHead& head, std::vector<std::string>& names) {
    for (std::string_view list : valuesOf(head, "Sec-WebSocket-Protocol")) {
        while (!list.empty()) {
            const std::string_view name = takeElement(list);
            // RFC 9110 section 5.6.1 has recipients ignore empty elements.
            if (name.empty()) {
                continue;
            }
            if (!isToken(name) || std::ranges::find(names, name) != names.end()) {
                return false;
            }
            names.emplace_back(name);
        }
    }
    return true;
}

/// @return false when there is something else than RFC 6455 section 9.1 has.
bool takeExtensions(const RequestHead& head, std::vector<ExtensionOffer>& offers) {
    const std::vector<std::string_view> values = valuesOf(head, "Sec-WebSocket-Extensions");
    if (values.empty()) {
        return true;
    }
    std::optional<std::vector<ExtensionOffer>> parsed = parseExtensions(joined(values));
    if (!parsed) {
        return false;
    }
    offers = std::move(*parsed);
    return true;
}

} // namespace

bool isOpening(const RequestHead& head) {
    return asksForUpgrade(head) && head.method == "GET" && hasElement(head, "Connection", "Upgrade");
}

bool asksForUpgrade(const RequestHead& head) {
    return head.version != "HTTP/1.0" && hasElement(head, "Upgrade", "websocket");
}

OpeningHead checkOpening(const RequestHead& head, bool hasBody) {
    OpeningHead opening;
    if (!isOpening(head)) {
        opening.reason = "a WebSocket is opened by GET with Connection: Upgrade";
        return opening;
    }
    const std::vector<std::string_view> versions = valuesOf(head, "Sec-WebSocket-Version");
    if (std::ranges::adjacent_find(versions, std::ranges::not_equal_to()) != versions.end()) {
        opening.reason = "more than one Sec-WebSocket-Version";
        return opening;
    }
    if (versions.empty() || versions.front() != SupportedVersion) {
        opening.verdict = OpeningHead::Verdict::OtherVersion;
        return opening;
    }
    const std::vector<std::string_view> keys = valuesOf(head, "Sec-WebSocket-Key");
    if (keys.size() != 1 || !isOpeningKey(keys.front())) {
        opening.reason = "bad Sec-WebSocket-Key";
        return opening;
    }
    if (hasBody) {
        opening.reason = "a body with a handshake of a WebSocket";
        return opening;
    }
    if (!hasGoodHost(head)) {
        opening.reason = "bad Host";
        return opening;
    }
    if (!takeSubprotocols(head, opening.subprotocols)) {
        opening.reason = "bad Sec-WebSocket-Protocol";
        return opening;
    }
    if (!takeExtensions(head, opening.extensions)) {
        opening.reason = "bad Sec-WebSocket-Extensions";
        return opening;
    }
    opening.key = keys.front();
    opening.verdict = OpeningHead::Verdict::Good;
    return opening;
}

bool isOpeningKey(std::string_view text) {
    constexpr std::size_t Digits = 22;
    // The last digit has two bits alone of the sixteenth byte.
    constexpr std::string_view LastDigits = "AQgw";
    const auto isDigit = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
    };
    return text.size() == Digits + 2 && text.substr(Digits) == "==" &&
           std::ranges::all_of(text.substr(0, Digits), isDigit) &&
           LastDigits.find(text[Digits - 1]) != std::string_view::npos;
}

Opening::Opening(const HttpBaseRequest& request, const RequestHead& head, const OpeningHead& opening,
                 std::string_view host, bool isTls)
    : request_(request),
      subprotocols_(opening.subprotocols),
      host_(host),
      isTls_(isTls),
      origin_(joined(valuesOf(head, "Origin"))) {}

bool Opening::isSameOrigin() const {
    const std::optional<WebOrigin> origin = WebOrigin::parse(origin_);
    return origin && (!isTls_ || origin->scheme == "https") && origin == WebOrigin::ofHost(origin->scheme, host_);
}

} // namespace ql::impl
