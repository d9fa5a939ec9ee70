#include "engine/FileBody.h"

#include <utility>

namespace ql::impl {

FileBody::FileBody(FileBody&& other) noexcept
    : file_(std::exchange(other.file_, None)), offset_(other.offset_), size_(other.size_) {}

FileBody& FileBody::operator=(FileBody&& other) noexcept {
    std::swap(file_, other.file_);
    std::swap(offset_, other.offset_);
    std::swap(size_, other.size_);
    return *this;
}

} // namespace ql::impl
