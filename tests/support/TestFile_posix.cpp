#include "support/TestFile.h"

#include <array>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace vireotest {

std::uint64_t openForReading(const std::filesystem::path& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        throw std::runtime_error("cannot open " + path.string());
    }
    return static_cast<std::uint64_t>(file);
}

bool isOpen(const std::filesystem::path& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code isGone;
        if (std::filesystem::read_symlink(entry.path(), isGone) == path) {
            return true;
        }
    }
    return false;
}

void setModified(const std::filesystem::path& path, std::int64_t seconds) {
    std::array<timespec, 2> times{};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(seconds);
    if (::utimensat(AT_FDCWD, path.c_str(), times.data(), 0) != 0) {
        throw std::runtime_error("cannot set the time of " + path.string());
    }
}

} // namespace vireotest
