#include "app/routing/Pattern.h"

#include "app/routing/PathSegments.h"
#include "app/routing/RouteTable.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace vireo::impl {

namespace {

constexpr std::string_view LettersAndDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

/// @param place the index of the byte that is wrong.
[[noreturn]] void refuse(std::string_view pattern, std::size_t place, std::string_view why) {
    ql::impl::throwInvalidArgument("the pattern \"" + std::string(pattern) + "\", at " + std::to_string(place) + ": " +
                                   std::string(why));
}

bool isName(std::string_view text) {
    return !text.empty() && text.find_first_not_of(std::string(LettersAndDigits) + "_-") == std::string_view::npos;
}

std::optional<Pattern::Kind> findKind(std::string_view type) {
    if (type == "int") {
        return Pattern::Kind::Int;
    }
    if (type == "uuid") {
        return Pattern::Kind::Uuid;
    }
    if (type == "path") {
        return Pattern::Kind::Rest;
    }
    return std::nullopt;
}

/// A text that would look like a parameter to who knows patterns of another kind, and never match what they mean.
/// @param text what is between the slashes.
void checkForeign(std::string_view pattern, std::size_t place, std::string_view text) {
    if (text.starts_with(':') || text.starts_with('<')) {
        refuse(pattern, place,
               "a parameter is {name}, {name:int}, {name:uuid} or {name:path}; a text that begins with "
               "\":\" or \"<\" has it as \"%3A\" or \"%3C\"");
    }
    if (text.starts_with('*')) {
        refuse(pattern, place, "the rest of a path is {name:path}; a text that begins with \"*\" has it as \"%2A\"");
    }
}

/// @param text what is between the slashes.
Pattern::Segment parseSegment(std::string_view pattern, std::size_t place, std::string_view text) {
    checkForeign(pattern, place, text);
    if (text.find_first_of("{}") == std::string_view::npos) {
        std::string literal;
        const auto isBlankOrControl = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; };
        if (const auto bad = std::ranges::find_if(text, isBlankOrControl); bad != text.end()) {
            refuse(pattern, place + static_cast<std::size_t>(bad - text.begin()),
                   "a blank is \"%20\" in a pattern, and control characters are escaped, too");
        }
        if (const std::size_t bad = text.find_first_of("?#"); bad != std::string_view::npos) {
            refuse(pattern, place + bad, "a path ends at \"?\" and \"#\"");
        }
        if (decodeSegment(text, literal) != PathFault::None) {
            refuse(pattern, place, "no percent-encoded UTF-8 without NUL: a \"%\" itself is \"%25\"");
        }
        if (literal == "." || literal == "..") {
            refuse(pattern, place, "requests for \".\" and \"..\" are refused");
        }
        return {Pattern::Kind::Literal, std::move(literal)};
    }
    if (text.front() != '{' || text.find('}') != text.size() - 1) {
        refuse(pattern, place, "a parameter takes the whole segment: {name}, {name:int}, {name:uuid} or {name:path}");
    }
    const std::string_view inner = text.substr(1, text.size() - 2);
    const std::size_t colon = inner.find(':');
    const std::string_view name = inner.substr(0, colon);
    if (!isName(name)) {
        refuse(pattern, place + 1, "a parameter's name is of letters, digits, \"_\" and \"-\"");
    }
    if (colon == std::string_view::npos) {
        return {Pattern::Kind::Text, std::string(name)};
    }
    const std::optional<Pattern::Kind> kind = findKind(inner.substr(colon + 1));
    if (!kind) {
        refuse(pattern, place + 1 + colon + 1, "the types of parameters are int, uuid and path");
    }
    return {*kind, std::string(name)};
}

} // namespace

Pattern Pattern::parse(std::string_view text) {
    if (text.empty() || text[0] != '/') {
        refuse(text, 0, "a pattern begins with a slash");
    }
    Pattern pattern;
    std::vector<std::string> names;
    for (std::size_t begin = 1; begin <= text.size();) {
        const std::size_t end = (std::min)(text.find('/', begin), text.size());
        Segment segment = parseSegment(text, begin, text.substr(begin, end - begin));
        if (segment.kind == Kind::Literal && segment.text.empty() && end < text.size()) {
            refuse(text, begin, "two slashes in a row");
        }
        if (segment.kind == Kind::Rest && end < text.size()) {
            refuse(text, begin, "the rest of the path comes last");
        }
        if (segment.kind != Kind::Literal) {
            if (std::ranges::find(names, segment.text) != names.end()) {
                refuse(text, begin, "a second parameter of this name");
            }
            if (names.size() == MaxParameters) {
                refuse(text, begin, "more than " + std::to_string(MaxParameters) + " parameters");
            }
            names.push_back(segment.text);
        }
        pattern.segments.push_back(std::move(segment));
        begin = end + 1;
    }
    return pattern;
}

Pattern Pattern::parsePrefix(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    Pattern pattern = parse(text);
    if (text.back() == '/') {
        refuse(text, text.size() - 1, "a prefix ends without a slash");
    }
    if (pattern.segments.back().kind == Kind::Rest) {
        refuse(text, text.rfind('/') + 1, "a prefix leaves the rest of the path to its routes");
    }
    return pattern;
}

bool isInt(std::string_view segment) {
    std::int64_t value = 0;
    const char* const end = segment.data() + segment.size();
    const auto [parsed, error] = std::from_chars(segment.data(), end, value);
    return parsed == end && error == std::errc();
}

bool isUuid(std::string_view segment) {
    constexpr std::string_view Form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    return std::ranges::equal(segment, Form, [](char c, char form) {
        return form == '-' ? c == '-' : std::string_view("0123456789abcdefABCDEF").find(c) != std::string_view::npos;
    });
}

std::optional<std::size_t> findParameter(std::string_view pattern, std::string_view name) {
    std::size_t index = 0;
    for (std::size_t open = pattern.find('{'); open != std::string_view::npos; open = pattern.find('{', open + 1)) {
        const std::string_view inner = pattern.substr(open + 1, pattern.find('}', open) - open - 1);
        if (inner.substr(0, inner.find(':')) == name) {
            return index;
        }
        ++index;
    }
    return std::nullopt;
}

} // namespace vireo::impl
