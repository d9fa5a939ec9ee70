// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// Why a path cannot be understood.
enum class PathFault : std::uint8_t {
    None,
    BadEscape,
    Nul,
    NotUtf8,
    DotSegment, ///< "." or "..", escaped or not: whoever resolves them sees another path
};

/// Decodes the percent-encoded escapes of a text, behind what `decoded` has.
/// @return None, BadEscape, Nul or NotUtf8.
PathFault decodeSegment(std::string_view text, std::string& decoded);

/// Splits a path at its slashes and decodes what is between them, so that an escaped slash separates nothing.
/// @param path begins with a slash; anything else has no segments.
/// @param decoded keeps the texts that have escapes.
/// @param segments refer to `path` and `decoded`.
PathFault splitPath(std::string_view path, std::string& decoded, std::vector<std::string_view>& segments);

} // namespace vireo::impl
