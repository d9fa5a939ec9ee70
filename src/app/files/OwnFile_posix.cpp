#include "app/files/OwnFile.h"

#include <cerrno>

#include <sys/types.h>
#include <unistd.h>

namespace vireo::impl {

OwnFile::~OwnFile() {
    if (isOpen()) {
        ::close(static_cast<int>(file_));
    }
}

bool OwnFile::readAt(std::uint64_t offset, std::span<char> bytes) const {
    while (!bytes.empty()) {
        const ssize_t read = ::pread(static_cast<int>(file_), bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (read < 0 && errno == EINTR) {
            continue;
        }
        if (read <= 0) {
            return false;
        }
        offset += static_cast<std::uint64_t>(read);
        bytes = bytes.subspan(static_cast<std::size_t>(read));
    }
    return true;
}

} // namespace vireo::impl
