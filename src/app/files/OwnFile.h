// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

namespace vireo::impl {

/// An open file that is closed at the end.
class OwnFile {
public:
    /// None.
    OwnFile() = default;
    /// Takes it over. @param file a descriptor, or a HANDLE on Windows; None for none.
    explicit OwnFile(std::uint64_t file) : file_(file) {}
    ~OwnFile();
    OwnFile(OwnFile&& other) noexcept;
    OwnFile& operator=(OwnFile&& other) noexcept;

    static constexpr std::uint64_t None = ~std::uint64_t{0};

    bool isOpen() const { return file_ != None; }
    std::uint64_t get() const { return file_; }
    /// Hands it over: whoever takes it closes it.
    std::uint64_t take();
    /// Fills all of `bytes`. Of one file several threads may read at once.
    /// @return false when the file ends before, or cannot be read.
    bool readAt(std::uint64_t offset, std::span<char> bytes) const;

private:
    std::uint64_t file_ = None;
};

} // namespace vireo::impl
