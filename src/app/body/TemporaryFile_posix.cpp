#include "app/body/TemporaryFile.h"

#include "app/kernel/Throw.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace vireo::impl {

namespace {

constexpr mode_t OwnerMode = 0600;
constexpr mode_t UsualMode = 0666;

} // namespace

bool TemporaryFile::create() {
    const int file = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                            readers_ == Readers::Owner ? OwnerMode : UsualMode);
    if (file >= 0) {
        file_ = OwnFile(static_cast<std::uint64_t>(file));
        return true;
    }
    if (errno != EEXIST) {
        const int error = errno;
        throwSystemError(error, "cannot make a file in " + directoryOf(path_));
    }
    return false;
}

void TemporaryFile::writeSome(std::string_view& bytes) {
    const ssize_t written = ::write(static_cast<int>(file_.get()), bytes.data(), bytes.size());
    if (written >= 0) {
        bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
        const int error = errno;
        throwSystemError(error, "cannot write " + path_);
    }
}

void TemporaryFile::openAgain() {
    const int file = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0) {
        const int error = errno;
        throwSystemError(error, "cannot read " + path_);
    }
    file_ = OwnFile(static_cast<std::uint64_t>(file));
}

TemporaryFile::Move TemporaryFile::move(const std::string& path) {
    if (std::rename(path_.c_str(), path.c_str()) == 0) {
        return Move::Done;
    }
    if (errno != EXDEV) {
        const int error = errno;
        throwSystemError(error, "cannot keep a file as " + path);
    }
    return Move::OtherFileSystem;
}

void TemporaryFile::close() {
    if (file_.isOpen() && ::close(static_cast<int>(file_.take())) != 0) {
        const int error = errno;
        // Its end may be missing: nobody is to keep it later either.
        remove();
        throwSystemError(error, "cannot write " + path_);
    }
}

void TemporaryFile::remove() noexcept {
    static_cast<void>(::unlink(path_.c_str()));
}

std::string temporaryDirectory() {
    const char* const directory = std::getenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return directory == nullptr || *directory == '\0' ? "/tmp" : directory;
}

} // namespace vireo::impl
