#include "engine/UnixSocketFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ql::impl {

namespace {

using StartError = http::HttpServer::StartError;

constexpr int LockAttempts = 100;
constexpr std::chrono::milliseconds LockPeriod{10};

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// @return what the system says to who connects there; 0 when somebody answers.
int probe(const std::string& path) {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        return errno;
    }
    const sockaddr_un address = addressOf(path);
    const int error = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
    ::close(socket);
    return error;
}

bool isSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

UnixSocketFile::UnixSocketFile(const std::string& path) : path_(path), name_(path.substr(path.rfind('/') + 1)) {}

std::unique_ptr<UnixSocketFile> UnixSocketFile::Listen(int socket, const std::string& path, unsigned int mode,
                                                       int backlog, StartFailure& failure) {
    // An empty name, and one that begins with a zero, would be no file's.
    if (path.empty() || path.find('\0') != std::string::npos) {
        failure = {StartError::InvalidAddress, "no path"};
        return nullptr;
    }
    if (path.size() >= sizeof sockaddr_un{}.sun_path) {
        failure = {StartError::InvalidAddress, "the path is too long"};
        return nullptr;
    }
    std::unique_ptr<UnixSocketFile> file(new UnixSocketFile(path));
    if (!file->lockDirectory(failure) || !file->makeRoom(failure) || !file->listen(socket, mode, backlog, failure)) {
        return nullptr;
    }
    (void)::flock(file->directory_, LOCK_UN);
    return file;
}

UnixSocketFile::~UnixSocketFile() {
    struct stat found {};
    if (isMade_ && isThere(found) && isSame(found, made_)) {
        (void)::unlinkat(directory_, name_.c_str(), 0);
    }
    if (directory_ >= 0) {
        ::close(directory_);
    }
}

bool UnixSocketFile::lockDirectory(StartFailure& failure) {
    directory_ = ::open(directoryOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory_ < 0) {
        failure = systemFailure(errno);
        return false;
    }
    for (int left = LockAttempts; ::flock(directory_, LOCK_EX | LOCK_NB) != 0; --left) {
        if (left == 0 || (errno != EWOULDBLOCK && errno != EINTR)) {
            failure = systemFailure(errno);
            return false;
        }
        std::this_thread::sleep_for(LockPeriod);
    }
    return true;
}

bool UnixSocketFile::makeRoom(StartFailure& failure) const {
    struct stat found {};
    if (!isThere(found)) {
        return true; // what else is wrong with the path shows when the socket is bound
    }
    if (!S_ISSOCK(found.st_mode)) {
        failure = {StartError::AddressInUse, "something that is no socket stands there"};
        return false;
    }
    if (probe(path_) != ECONNREFUSED) {
        failure = {StartError::AddressInUse, "another socket listens there"};
        return false;
    }
    if (::unlinkat(directory_, name_.c_str(), 0) != 0) {
        failure = systemFailure(errno);
        return false;
    }
    return true;
}

bool UnixSocketFile::listen(int socket, unsigned int mode, int backlog, StartFailure& failure) {
    const sockaddr_un address = addressOf(path_);
    if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        failure = systemFailure(errno);
        return false;
    }
    // Nobody can connect before it listens, so nobody comes in by permissions that are not meant.
    isMade_ = isThere(made_);
    if (!isMade_ || ::fchmodat(directory_, name_.c_str(), static_cast<mode_t>(mode), AT_SYMLINK_NOFOLLOW) != 0 ||
        ::listen(socket, backlog) != 0) {
        failure = systemFailure(errno);
        return false;
    }
    return true;
}

bool UnixSocketFile::isThere(struct stat& found) const {
    return ::fstatat(directory_, name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
}

} // namespace ql::impl
