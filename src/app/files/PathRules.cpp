#include "app/files/PathRules.h"

#include "frame/HttpSyntax.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;

constexpr std::array<std::string_view, 6> Devices = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
constexpr std::array<std::string_view, 2> NumberedDevices = {"COM", "LPT"};
/// Which stand for digits in names of devices.
constexpr std::array<std::string_view, 3> Superscripts = {"\xC2\xB9", "\xC2\xB2", "\xC2\xB3"};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// A device is one with an extension, too.
bool isDevice(std::string_view segment) {
    std::string_view name = segment.substr(0, segment.find('.'));
    while (name.ends_with(' ')) {
        name.remove_suffix(1);
    }
    if (std::ranges::any_of(Devices, [name](std::string_view device) { return isSameWord(name, device); })) {
        return true;
    }
    return std::ranges::any_of(NumberedDevices, [name](std::string_view device) {
        if (!isSameWord(name.substr(0, device.size()), device)) {
            return false;
        }
        const std::string_view number = name.substr(device.size());
        return (number.size() == 1 && isDigit(number.front())) ||
               std::ranges::find(Superscripts, number) != Superscripts.end();
    });
}

/// A short name that the system makes for a long one, such as "PROGRA~1".
bool isShortName(std::string_view segment) {
    const std::size_t tilde = segment.find('~');
    return tilde != std::string_view::npos && (std::ranges::any_of(segment.substr(tilde + 1), isDigit));
}

bool isWindowsSegment(std::string_view segment) {
    const bool hasForbidden = std::ranges::any_of(segment, [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F ||
               std::string_view(":*?\"<>|").find(c) != std::string_view::npos;
    });
    return !hasForbidden && segment.back() != '.' && segment.back() != ' ' && !isDevice(segment) &&
           !isShortName(segment);
}

} // namespace

bool isPathSegment(std::string_view segment, bool dotFiles, PathPlatform platform) {
    if (segment.empty() || segment == "." || segment == ".." || (!dotFiles && segment.front() == '.')) {
        return false;
    }
    if (segment.find_first_of(std::string_view("\0/\\", 3)) != std::string_view::npos) {
        return false;
    }
    return platform == PathPlatform::Posix || isWindowsSegment(segment);
}

std::vector<std::string_view> segmentsOf(std::string_view path) {
    std::vector<std::string_view> segments;
    while (!path.empty()) {
        const std::size_t slash = (std::min)(path.find('/'), path.size());
        if (slash != 0) {
            segments.push_back(path.substr(0, slash));
        }
        path.remove_prefix((std::min)(slash + 1, path.size()));
    }
    return segments;
}

} // namespace vireo::impl
