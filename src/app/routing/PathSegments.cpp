#include "app/routing/PathSegments.h"

#include "frame/HttpSyntax.h"
#include "frame/Utf8.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace vireo::impl {

PathFault decodeSegment(std::string_view text, std::string& decoded) {
    const std::size_t begin = decoded.size();
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const std::optional<char> escaped = ql::impl::escapeAt(text, i);
            if (!escaped) {
                return PathFault::BadEscape;
            }
            c = *escaped;
            i += 2;
        }
        if (c == '\0') {
            return PathFault::Nul;
        }
        decoded += c;
    }
    return ql::impl::findInvalidUtf8(std::string_view(decoded).substr(begin)) == std::string_view::npos
               ? PathFault::None
               : PathFault::NotUtf8;
}

namespace {

/// Whether it is one of dots, or would be several with such a one among them to who joins it to a path: an escape may
/// have brought separators.
bool hasDotSegment(std::string_view segment) {
    while (true) {
        const std::size_t end = (std::min)(segment.find_first_of("/\\"), segment.size());
        const std::string_view part = segment.substr(0, end);
        if (part == "." || part == "..") {
            return true;
        }
        if (end == segment.size()) {
            return false;
        }
        segment.remove_prefix(end + 1);
    }
}

} // namespace

PathFault splitPath(std::string_view path, std::string& decoded, std::vector<std::string_view>& segments) {
    decoded.clear();
    segments.clear();
    if (path.empty() || path[0] != '/') {
        return PathFault::None;
    }
    segments.reserve(static_cast<std::size_t>(std::ranges::count(path, '/')));
    // Decoding makes nothing longer: the segments stay where they are.
    decoded.reserve(path.size());
    for (std::size_t slash = 0; slash != std::string_view::npos;) {
        const std::size_t next = path.find('/', slash + 1);
        const std::string_view raw = path.substr(slash + 1, (std::min)(next, path.size()) - slash - 1);
        const std::size_t begin = decoded.size();
        if (const PathFault fault = decodeSegment(raw, decoded); fault != PathFault::None) {
            return fault;
        }
        const std::string_view segment = std::string_view(decoded).substr(begin);
        if (hasDotSegment(segment)) {
            return PathFault::DotSegment;
        }
        segments.push_back(segment);
        slash = next;
    }
    return PathFault::None;
}

} // namespace vireo::impl
