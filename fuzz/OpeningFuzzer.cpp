// Heads that may open a WebSocket, and strict heads in general, beside the rules of RFC 6455 section 4.2.1 and of RFC
// 9112, read field by field.
//
// An input is a request line and lines of fields.

#include "Check.h"
#include "ModelText.h"
#include "request/StrictHead.h"
#include "session/Opening.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using ql::impl::HeadVerdict;
using ql::impl::OpeningHead;
using ql::impl::RequestHead;

std::vector<std::string_view> valuesOf(const RequestHead& head, std::string_view name) {
    std::vector<std::string_view> values;
    for (const auto& field : head.fields) {
        if (lower(field.name) == lower(name)) {
            values.push_back(trimmed(field.value));
        }
    }
    return values;
}

bool lists(const RequestHead& head, std::string_view name, std::string_view element) {
    for (const std::string_view value : valuesOf(head, name)) {
        for (const std::string_view part : split(value, ',')) {
            if (lower(trimmed(part)) == lower(element)) {
                return true;
            }
        }
    }
    return false;
}

bool isToken(std::string_view text) {
    constexpr std::string_view Others = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               Others.find(c) != std::string_view::npos;
    });
}

/// Sixteen bytes are 22 letters, the last of which has four bits, and two signs of padding.
bool isKey(std::string_view text) {
    return text.size() == 24 && text.ends_with("==") &&
           text.substr(0, 22).find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/") ==
               std::string_view::npos &&
           std::string_view("AQgw").find(text[21]) != std::string_view::npos;
}

RequestHead readHead(std::string_view text) {
    RequestHead head;
    const std::vector<std::string_view> lines = split(text, '\n');
    const std::vector<std::string_view> words = split(lines[0], ' ');
    head.method = words[0];
    head.target = words.size() > 1 ? words[1] : "";
    head.version = words.size() > 2 ? words[2] : "";
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::size_t colon = std::min(lines[i].find(':'), lines[i].size());
        head.fields.push_back(
            {lines[i].substr(0, colon), trimmed(lines[i].substr(std::min(colon + 1, lines[i].size())))});
    }
    return head;
}

void checkOpening(const RequestHead& head) {
    const OpeningHead opening = ql::impl::checkOpening(head, false);
    const bool isAsked = head.method == "GET" && head.version != "HTTP/1.0" && lists(head, "Upgrade", "websocket") &&
                         lists(head, "Connection", "upgrade");
    check(ql::impl::isOpening(head) == isAsked, "an opening, or none");
    const std::vector<std::string_view> versions = valuesOf(head, "Sec-WebSocket-Version");
    const std::set<std::string_view> differentVersions(versions.begin(), versions.end());
    const std::vector<std::string_view> keys = valuesOf(head, "Sec-WebSocket-Key");
    std::vector<std::string> subprotocols;
    bool areTokens = true;
    for (const std::string_view value : valuesOf(head, "Sec-WebSocket-Protocol")) {
        for (const std::string_view part : split(value, ',')) {
            const std::string_view name = trimmed(part);
            if (!name.empty()) {
                areTokens = areTokens && isToken(name);
                subprotocols.emplace_back(name);
            }
        }
    }
    const std::set<std::string> different(subprotocols.begin(), subprotocols.end());
    const bool isRight = isAsked && differentVersions == std::set<std::string_view>{"13"} && keys.size() == 1 &&
                         isKey(keys[0]) && areTokens && different.size() == subprotocols.size();
    if (opening.verdict == OpeningHead::Verdict::Good) {
        check(isRight, "a bad opening is good");
        check(opening.key == keys[0], "another key");
        check(opening.subprotocols == subprotocols, "other subprotocols");
        check(ql::impl::hasGoodHost(head), "an opening without a host");
    } else if (isRight && ql::impl::hasGoodHost(head)) {
        check(opening.reason == "bad Sec-WebSocket-Extensions", "a good opening is bad");
    }
    check((opening.verdict == OpeningHead::Verdict::OtherVersion) ==
              (isAsked && differentVersions.size() < 2 && !differentVersions.contains("13")),
          "another version, or not");
}

void checkStrict(const RequestHead& head) {
    const HeadVerdict verdict = ql::impl::checkHead(head, {"OWN"});
    check((verdict.status == 0) == verdict.reason.empty(), "a reason without a refusal, or the other way round");
    if (verdict.status != 0) {
        return;
    }
    check(isToken(head.method) && head.method != "CONNECT", "a method that is none is served");
    check(head.version.size() == 8 && head.version.starts_with("HTTP/1."), "another version is served");
    check(valuesOf(head, "Host").size() == (head.version == "HTTP/1.0" && valuesOf(head, "Host").empty() ? 0 : 1),
          "no host, or several");
    const std::vector<std::string_view> lengths = valuesOf(head, "Content-Length");
    const std::vector<std::string_view> codings = valuesOf(head, "Transfer-Encoding");
    check(lengths.size() + codings.size() < 2, "a body with two ends");
    check(lengths.empty() ||
              (!lengths[0].empty() && lengths[0].find_first_not_of("0123456789") == std::string_view::npos),
          "a length that is none");
    check(codings.empty() || (lower(codings[0]) == "chunked" && head.version != "HTTP/1.0"), "an unknown coding");
    for (const auto& field : head.fields) {
        check(isToken(field.name), "a field without a name is served");
        check(std::none_of(field.value.begin(), field.value.end(),
                           [](char c) { return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7F'; }),
              "a control character is served");
    }
    check(verdict.target == "*" || verdict.target.starts_with('/'), "a target that is no path");
    const std::string uri = ql::impl::uriOfTarget(verdict.target);
    check(ql::impl::uriOfTarget(uri) == uri, "a target is written in two ways");
    check(std::all_of(uri.begin(), uri.end(), [](char c) { return c > ' ' && c < '\x7F'; }), "a target is no URI");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const RequestHead head = readHead({reinterpret_cast<const char*>(data), size});
    checkOpening(head);
    checkStrict(head);
    for (const auto& field : head.fields) {
        check(ql::impl::isOpeningKey(field.value) == isKey(field.value), "a key, or none");
    }
    return 0;
}
