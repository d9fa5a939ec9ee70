// SPDX-License-Identifier: MIT
#pragma once

#include "app/files/Listing.h"
#include "app/files/OwnFile.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// What is known of an open file.
struct FileFacts {
    std::uint64_t size = 0;
    /// Nanoseconds since 1970.
    ///@{
    std::int64_t modifiedNs = 0;
    /// Of whatever has changed, the content or what the system keeps of the file.
    std::int64_t changedNs = 0;
    ///@}
};

/// What stands at a path.
struct FoundFile {
    enum class Kind : std::uint8_t { None, File, Directory };

    Kind kind = Kind::None;
    OwnFile file{};
    FileFacts facts{};
};

/// Opens one file, of any path. Kind::None for what is no regular file or directory.
/// @throws std::system_error for want of descriptors or memory.
FoundFile openFile(const std::string& path);

/// A directory out of which no path leads: no "..", and no link that points elsewhere. On Windows as elsewhere a file
/// has one spelling, that of its names in their directories. The root stays the same one whatever its path comes to
/// mean. Any thread.
class FileRoot {
public:
    /// @throws std::system_error when there is no such directory.
    explicit FileRoot(const std::string& path);

    /// @param segments each one that isPathSegment() lets pass.
    /// @throws std::system_error for want of descriptors or memory.
    FoundFile open(std::span<const std::string_view> segments) const;

    /// What is in one of its directories, in no order; without what is neither a file nor a directory.
    static std::vector<DirectoryEntry> list(const FoundFile& directory);

private:
    OwnFile directory_;
};

} // namespace vireo::impl
