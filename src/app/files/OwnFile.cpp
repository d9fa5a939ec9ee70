#include "app/files/OwnFile.h"

#include <utility>

namespace vireo::impl {

OwnFile::OwnFile(OwnFile&& other) noexcept : file_(std::exchange(other.file_, None)) {}

OwnFile& OwnFile::operator=(OwnFile&& other) noexcept {
    std::swap(file_, other.file_);
    return *this;
}

std::uint64_t OwnFile::take() {
    return std::exchange(file_, None);
}

} // namespace vireo::impl
