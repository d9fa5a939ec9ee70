// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace ql::impl {

/// A part of an open file, which is the body of an answer. The file is closed at the end.
class FileBody {
public:
    /// Takes the file over. @param file a descriptor, or a HANDLE on Windows.
    FileBody(std::uint64_t file, std::uint64_t offset, std::uint64_t size)
        : file_(file), offset_(offset), size_(size) {}
    ~FileBody();
    FileBody(FileBody&& other) noexcept;
    FileBody& operator=(FileBody&& other) noexcept;

    std::uint64_t offset() const { return offset_; }
    std::uint64_t size() const { return size_; }

    /// Copies up to `max` bytes of the part.
    /// @param position in the part, below its size.
    /// @param error why the file cannot be read, by the system's code; otherwise 0.
    /// @return how many; 0 when the file has become shorter, or cannot be read.
    std::size_t read(std::uint64_t position, char* buffer, std::size_t max, int& error) const;

    /// The descriptor, for the engine to send by itself; -1 where the system's files are none.
    int descriptor() const;
    /// Somebody else closes the file from now on.
    void disown() { file_ = None; }

private:
    static constexpr std::uint64_t None = ~std::uint64_t{0};

    std::uint64_t file_;
    std::uint64_t offset_;
    std::uint64_t size_;
};

} // namespace ql::impl
