// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// Whose file names a segment of a path has to be safe for.
enum class PathPlatform : std::uint8_t { Posix, Windows };

/// The one that this is built for.
extern const PathPlatform ThisPlatform;

/// What divides a path of the system's into names.
extern const std::string_view PathSeparators;

/// Whether one segment of a path, decoded, may name a file or a directory. What may not never reaches the system.
/// @param dotFiles whether it may begin with a dot.
bool isPathSegment(std::string_view segment, bool dotFiles, PathPlatform platform = ThisPlatform);

/// What stands between the slashes of a path; of "/a//b" as of "a/b".
std::vector<std::string_view> segmentsOf(std::string_view path);

} // namespace vireo::impl
