#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

/// A file below the directory that is served, as its answer describes it.
struct File {
    std::filesystem::path path;
    std::uint64_t size = 0;
    std::string contentType;
    /// Quoted; changes whenever the file does.
    std::string entityTag;
    std::chrono::sys_seconds lastModified;
};

/// The file that a decoded URL path names; "index.html" for a directory. Nothing when there is none, and for every path
/// that leads out of `root`, by "..", by a symbolic link or otherwise, or to a hidden file.
/// @param root canonical.
std::optional<File> findFile(const std::filesystem::path& root, const std::string& urlPath);
