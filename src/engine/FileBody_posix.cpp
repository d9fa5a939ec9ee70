#include "engine/FileBody.h"

#include <algorithm>
#include <cerrno>

#include <sys/types.h>
#include <unistd.h>

namespace ql::impl {

FileBody::~FileBody() {
    if (file_ != None) {
        ::close(static_cast<int>(file_));
    }
}

std::size_t FileBody::read(std::uint64_t position, char* buffer, std::size_t max, int& error) const {
    const auto size = static_cast<std::size_t>((std::min)(static_cast<std::uint64_t>(max), size_ - position));
    const auto from = static_cast<off_t>(offset_ + position);
    ssize_t copied = 0;
    do {
        copied = ::pread(static_cast<int>(file_), buffer, size, from);
    } while (copied < 0 && errno == EINTR);
    error = copied < 0 ? errno : 0;
    return copied < 0 ? 0 : static_cast<std::size_t>(copied);
}

int FileBody::descriptor() const {
    return static_cast<int>(file_);
}

} // namespace ql::impl
