#include "server/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ql::impl {

void makeLogFile(const std::filesystem::path& path) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR | S_IRGRP);
    if (file >= 0) {
        ::close(file);
    }
}

} // namespace ql::impl
