// Paths of static files: what passes the rules names something below the root, whoever's file system it is.

#include "Check.h"
#include "app/files/PathRules.h"
#include "app/request/HeadView.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::impl::HeadView;
using vireo::impl::isPathSegment;
using vireo::impl::PathPlatform;

std::string upper(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(c < 128 ? std::toupper(c) : c); });
    return result;
}

/// What Windows would take for something else than a name, said otherwise than the rules say it.
bool isOddOnWindows(std::string_view segment) {
    std::string stem = upper(segment.substr(0, segment.find_first_of(".:")));
    while (!stem.empty() && stem.back() == ' ') {
        stem.pop_back();
    }
    const bool isDevice = stem == "CON" || stem == "PRN" || stem == "AUX" || stem == "NUL" || stem == "CONIN$" ||
                          stem == "CONOUT$" ||
                          (stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) &&
                           std::isdigit(static_cast<unsigned char>(stem[3])) != 0);
    return isDevice || segment.find(':') != std::string_view::npos || segment.ends_with('.') || segment.ends_with(' ');
}

/// @return whether the path passes the rules.
bool passes(const std::vector<std::string_view>& segments, PathPlatform platform, bool dotFiles) {
    for (const std::string_view segment : segments) {
        if (!isPathSegment(segment, dotFiles, platform)) {
            return false;
        }
        check(segment.find_first_of(std::string_view("/\\\0", 3)) == std::string_view::npos, "a separator passes");
        check(dotFiles || segment.front() != '.', "a dot file passes");
        check(platform == PathPlatform::Posix || !isOddOnWindows(segment), "an odd name passes");
    }
    return true;
}

void checkPath(const std::vector<std::string_view>& segments) {
    std::filesystem::path path("/root");
    for (const std::string_view segment : segments) {
        path /= segment;
    }
    const std::filesystem::path normal = path.lexically_normal();
    check(normal == path, "a path is another one than it looks");
    check(normal.string().starts_with("/root"), "a path leads out");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string target = "/" + std::string(reinterpret_cast<const char*>(data), size);
    HeadView head("GET", target, {}, ql::IpAddress(), nullptr, nullptr);
    if (head.split() != HeadView::Fault::None) {
        return 0;
    }
    const std::vector<std::string_view> segments(head.segments().begin(), head.segments().end());
    bool passesAny = false;
    for (const PathPlatform platform : {PathPlatform::Posix, PathPlatform::Windows}) {
        for (const bool dotFiles : {false, true}) {
            passesAny = passes(segments, platform, dotFiles) || passesAny;
        }
    }
    if (passesAny) {
        checkPath(segments);
    }
    return 0;
}
