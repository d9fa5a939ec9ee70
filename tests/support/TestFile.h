#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace vireotest {

/// A directory of its own, which is removed with all that is in it.
class TestDirectory {
public:
    TestDirectory();
    ~TestDirectory();
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// Writes a file, and makes the directories that it needs.
    /// @param name in UTF-8, with "/" between directories.
    /// @return its path.
    std::filesystem::path write(const std::string& name, std::string_view content) const;
    /// How many files and directories are in it, those of its directories included.
    std::size_t entries() const;

private:
    std::filesystem::path path_;
};

/// What a file holds.
std::string contentOf(const std::filesystem::path& path);

/// A descriptor or HANDLE that reads the file; whoever gets it closes it.
std::uint64_t openForReading(const std::filesystem::path& path);

/// Whether anybody in this process has the file open.
bool isOpen(const std::filesystem::path& path);

/// Has the file changed last at this time, in seconds since 1970, also where std::filesystem cannot count so far.
void setModified(const std::filesystem::path& path, std::int64_t seconds);

} // namespace vireotest
