// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// What is in a directory.
struct DirectoryEntry {
    std::string name;
    bool isDirectory = false;
    std::uint64_t size = 0;
};

/// Text that may stand anywhere in a page.
std::string escapedHtml(std::string_view text);

/// A segment of a path as it may stand in a URL.
std::string escapedSegment(std::string_view segment);

/// The page that shows a directory: directories first, then by name.
/// @param title what the directory is called.
/// @param isRoot whether there is nothing above it.
std::string listingPage(std::string_view title, std::vector<DirectoryEntry>&& entries, bool isRoot);

} // namespace vireo::impl
