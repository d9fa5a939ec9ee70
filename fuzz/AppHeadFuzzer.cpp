// Heads as the toolkit reads them: path, query, headers and who is told by proxies; beside a reading character by
// character, and the decoder of the encoding standard.

#include "Check.h"
#include "FormReference.h"
#include "ModelText.h"
#include "app/request/HeadView.h"
#include "app/routing/RouteTable.h"
#include "reliability/Choices.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::QueryArgument;
using vireo::impl::HeadView;
using vireo::impl::ProxyRules;

constexpr const char* Replacement = "\xEF\xBF\xBD";

/// The UTF-8 decoder of the encoding standard, by its state.
std::string decodeUtf8(std::string_view bytes) {
    std::string out;
    std::string sequence;
    std::size_t needed = 0;
    unsigned int lowest = 0x80;
    unsigned int highest = 0xBF;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const unsigned int byte = static_cast<unsigned char>(bytes[i]);
        if (needed == 0) {
            if (byte < 0x80) {
                out += bytes[i];
            } else if (byte < 0xC2 || byte > 0xF4) {
                out += Replacement;
            } else {
                needed = byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
                lowest = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
                highest = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
                sequence = bytes[i];
            }
        } else if (byte < lowest || byte > highest) {
            out += Replacement;
            needed = 0;
            --i; // which begins something else
        } else {
            lowest = 0x80;
            highest = 0xBF;
            sequence += bytes[i];
            if (--needed == 0) {
                out += sequence;
            }
        }
    }
    return needed == 0 ? out : out + Replacement;
}

void checkQuery(const HeadView& head, std::string_view query) {
    std::vector<QueryArgument> expected;
    for (const auto& [name, value] : pairsOfForm(query)) {
        expected.push_back({decodeUtf8(name), decodeUtf8(value)});
    }
    const std::vector<QueryArgument>& arguments = head.queryArguments();
    check(std::ranges::equal(
              arguments, expected,
              [](const auto& left, const auto& right) { return left.name == right.name && left.value == right.value; }),
          "other arguments");
    for (const QueryArgument& argument : arguments) {
        const std::vector<std::string> all = head.queryAll(argument.name);
        check(head.hasQuery(argument.name) && head.query(argument.name) == all.front(), "a value is not the first");
        check(std::ranges::count(arguments, argument.name, &QueryArgument::name) ==
                  static_cast<std::ptrdiff_t>(all.size()),
              "not all values");
    }
}

/// @return none where the path is to be refused.
std::vector<std::string> segmentsOf(std::string_view path, bool& isSound) {
    isSound = true;
    std::vector<std::string> segments;
    if (path.empty() || path.front() != '/') {
        return segments;
    }
    for (const std::string_view part : split(path.substr(1), '/')) {
        std::string segment;
        for (std::size_t i = 0; i < part.size(); ++i) {
            if (part[i] != '%') {
                segment += part[i];
                continue;
            }
            if (i + 2 >= part.size() || hexDigit(part[i + 1]) < 0 || hexDigit(part[i + 2]) < 0) {
                isSound = false;
                return segments;
            }
            segment += static_cast<char>(hexDigit(part[i + 1]) * 16 + hexDigit(part[i + 2]));
            i += 2;
        }
        isSound = isSound && segment.find('\0') == std::string::npos && decodeUtf8(segment) == segment;
        // Who joins it to a path takes either slash.
        std::string inPath = segment;
        std::ranges::replace(inPath, '\\', '/');
        for (const std::string_view name : split(inPath, '/')) {
            isSound = isSound && name != "." && name != "..";
        }
        segments.push_back(segment);
    }
    return segments;
}

void checkPath(HeadView& head, std::string_view path) {
    bool isSound = true;
    const std::vector<std::string> expected = segmentsOf(path, isSound);
    check((head.split() == HeadView::Fault::None) == isSound, "a path is refused against the rules, or not");
    if (!isSound) {
        return;
    }
    check(std::ranges::equal(head.segments(), expected), "other segments");
    std::string joined;
    for (const std::string& segment : expected) {
        joined += "/" + segment;
    }
    check(head.path() == (expected.empty() ? std::string(path) : joined), "another path");
}

/// What the last proxy says in the last line.
std::string_view lastWord(const std::vector<ql::HeaderLine>& lines, std::string_view name) {
    std::string_view said;
    for (const ql::HeaderLine& line : lines) {
        if (lower(line.name) == name) {
            said = trimmed(split(line.value, ',').back());
        }
    }
    return said;
}

void checkHeaders(const HeadView& head, const std::vector<ql::HeaderLine>& lines, bool isTrusted) {
    for (const ql::HeaderLine& line : lines) {
        std::string joined;
        std::string_view first;
        std::size_t count = 0;
        for (const ql::HeaderLine& other : lines) {
            if (lower(other.name) == lower(line.name)) {
                first = count == 0 ? other.value : first;
                joined += (count == 0 ? "" : ", ") + std::string(other.value);
                ++count;
            }
        }
        check(head.header(line.name) == joined && head.header(lower(line.name)) == joined, "another header");
        check(head.headerAll(line.name).size() == count && head.line(line.name) == first, "other lines");
    }
    const std::string scheme = isTrusted ? lower(lastWord(lines, "x-forwarded-proto")) : std::string();
    check(head.scheme() == (scheme == "https" ? "https" : "http"), "another scheme");
    const std::string_view id = isTrusted ? lastWord(lines, "x-request-id") : std::string_view();
    const bool isId = !id.empty() && id.size() <= 64 && std::ranges::all_of(id, [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '_' ||
               c == '-';
    });
    check(isId == (head.id() == id), "another id");
    check(!head.id().empty(), "a request without an id");
    const std::string_view host = isTrusted ? lastWord(lines, "x-forwarded-host") : std::string_view();
    check(head.host() == host || head.host() == head.line("host"), "a host that nobody has said");
    check(head.clientAddress() == head.clientAddress() && !head.client().empty(), "nobody has asked");
}

void checkChoices(const HeadView& head) {
    constexpr std::array<std::string_view, 3> Types{"text/html", "application/json", "text/plain"};
    constexpr std::array<std::string_view, 3> Languages{"en", "de-AT", "fr"};
    constexpr std::array<std::string_view, 3> Codings{"br", "gzip", "identity"};
    const auto isOffered = [](const std::string& chosen, std::span<const std::string_view> offers) {
        return chosen.empty() || std::ranges::find(offers, chosen) != offers.end();
    };
    check(isOffered(head.accepts(Types), Types) && isOffered(head.acceptsLanguage(Languages), Languages) &&
              isOffered(head.acceptsEncoding(Codings), Codings),
          "what was not offered is chosen");
    for (const vireo::Cookie& cookie : head.cookies()) {
        const auto first = std::ranges::find(head.cookies(), cookie.name, &vireo::Cookie::name);
        check(head.cookie(cookie.name) == first->value, "a cookie is not the first of its name");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto proxies = std::make_shared<const ProxyRules>(std::vector<std::string>{"127.0.0.1"});
    constexpr std::size_t MostLines = 12;
    vireotest::Choices input(data, size);
    const bool isTrusted = input.takeBool();
    const std::string target = input.takeText(input.takeByte());
    std::vector<ql::HeaderLine> lines;
    while (!input.isUsedUp() && lines.size() < MostLines) {
        const std::string_view name = input.takePiece();
        lines.push_back({name, input.takePiece()});
    }
    const std::string path(split(target, '?').front());
    HeadView head("GET", target, lines, ql::IpAddress::Parse("127.0.0.1").value(), nullptr,
                  isTrusted ? proxies : nullptr);
    check(head.rawPath() == path && head.target() == target, "another target");
    checkPath(head, path);
    checkQuery(head,
               target.size() > path.size() ? std::string_view(target).substr(path.size() + 1) : std::string_view());
    checkHeaders(head, lines, isTrusted);
    checkChoices(head);
    const std::string toggled = path.ends_with('/') ? path.substr(0, path.size() - 1) : path + "/";
    check(head.toggledTarget() == toggled + target.substr(path.size()), "another target with the other slash");
    return 0;
}
