#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

/// A file that gets its name only when it is whole; until then it has another, and is removed unless it was kept.
class NewFile {
public:
    /// @throws std::ios_base::failure, std::filesystem::filesystem_error, as the members below, when the system
    /// refuses.
    explicit NewFile(const std::filesystem::path& directory);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(const char* data, std::size_t size);

    /// The file is whole. A file of this name is replaced.
    void keepAs(const std::string& name);

private:
    const std::filesystem::path path_;
    std::ofstream stream_;
};
