// SPDX-License-Identifier: MIT
#pragma once

#include "app/files/OwnFile.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace vireo::impl {

/// A file under a name of its own, which is removed unless it is given another one. One thread at a time.
class TemporaryFile {
public:
    /// Who may read it, also later.
    enum class Readers : std::uint8_t {
        Owner,
        AsOthers, ///< as the process's other files
    };

    /// @throws std::system_error
    TemporaryFile(const std::string& directory, Readers readers);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// Appends.
    /// @throws std::system_error
    void write(std::string_view bytes);
    /// All is written: it is closed, since descriptors are few.
    /// @throws std::system_error and removes it, when the system tells only now that it could not be written.
    void finish() { close(); }
    std::uint64_t size() const { return size_; }
    const std::string& path() const { return path_; }
    bool isKept() const { return isKept_; }

    /// Gives it its lasting name, by one step, and closes it. Across the border of a file system it is copied beside
    /// that name before.
    /// @throws std::system_error as write() and finish() do.
    void keepAs(const std::string& path);

private:
    enum class Move : std::uint8_t { Done, OtherFileSystem };

    /// @return false when there is a file of this name.
    bool create();
    void writeSome(std::string_view& bytes);
    /// To read it.
    void openAgain();
    Move move(const std::string& path);
    void copyTo(TemporaryFile& other) const;
    /// As finish().
    void close();
    void remove() noexcept;

    const Readers readers_;
    std::string path_;
    OwnFile file_;
    std::uint64_t size_ = 0;
    bool isKept_ = false;
};

/// The directory in which a path's file stands.
std::string directoryOf(const std::string& path);

/// Where the system wants temporary files.
std::string temporaryDirectory();

/// Whether it names a file in a directory, rather than a path, and no hidden one.
bool isFileName(std::string_view name);

} // namespace vireo::impl
