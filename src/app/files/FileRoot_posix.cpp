#include "app/files/FileRoot.h"

#include "app/files/LinkPolicy_posix.h"
#include "app/kernel/Throw.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __linux__
#    include <sys/syscall.h>
#    if defined(SYS_openat2) && __has_include(<linux/openat2.h>)
#        include <linux/openat2.h>
#        define VIREO_OPENAT2
#    endif
#endif

namespace vireo::impl {

namespace {

/// A device or a pipe must not hold the thread that opens it.
constexpr int OpenFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr std::int64_t NsPerSecond = 1000000000;
/// Up to the year 2262, as far as nanoseconds can be counted.
constexpr std::int64_t MostSeconds = std::numeric_limits<std::int64_t>::max() / NsPerSecond - 1;

int descriptorOf(const OwnFile& file) {
    return static_cast<int>(file.get());
}

/// None where there is no such file.
/// @param descriptor what the system has just said.
/// @throws std::system_error
OwnFile opened(int descriptor) {
    if (descriptor >= 0) {
        return OwnFile(static_cast<std::uint64_t>(descriptor));
    }
    if (const int error = errno; isShortage(error)) {
        throwSystemError(error, "cannot open a file");
    }
    return {};
}

std::int64_t nanoseconds(const timespec& time) {
    const auto seconds = static_cast<std::int64_t>(time.tv_sec);
    return std::clamp(seconds, -MostSeconds, MostSeconds) * NsPerSecond + time.tv_nsec;
}

FileFacts factsOf(const struct stat& found) {
#ifdef __APPLE__
    return {static_cast<std::uint64_t>(found.st_size), nanoseconds(found.st_mtimespec),
            nanoseconds(found.st_ctimespec)};
#else
    return {static_cast<std::uint64_t>(found.st_size), nanoseconds(found.st_mtim), nanoseconds(found.st_ctim)};
#endif
}

FoundFile found(OwnFile&& file) {
    struct stat status {};
    if (!file.isOpen() || ::fstat(descriptorOf(file), &status) != 0) {
        return {};
    }
    if (S_ISREG(status.st_mode)) {
        return {FoundFile::Kind::File, std::move(file), factsOf(status)};
    }
    return {S_ISDIR(status.st_mode) ? FoundFile::Kind::Directory : FoundFile::Kind::None, std::move(file),
            factsOf(status)};
}

/// Segment by segment, and through no link at all.
OwnFile openWithoutLinks(int directory, std::span<const std::string_view> segments) {
    OwnFile current;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const int from = i == 0 ? directory : descriptorOf(current);
        const int flags = OpenFlags | O_NOFOLLOW | (i + 1 < segments.size() ? O_DIRECTORY : 0);
        current = opened(::openat(from, std::string(segments[i]).c_str(), flags));
        if (!current.isOpen()) {
            break;
        }
    }
    return current;
}

#ifdef VIREO_OPENAT2

/// The system could not tell whether a directory was moved meanwhile.
constexpr int Attempts = 8;

int openat2(int directory, const char* path) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(OpenFlags);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(::syscall(SYS_openat2, directory, path, &how, sizeof how));
}

/// @return none where the system does not have the call.
std::optional<OwnFile> openBeneath(int directory, std::span<const std::string_view> segments) {
    if (linkPolicy.load(std::memory_order_relaxed) == LinkPolicy::None) {
        return std::nullopt;
    }
    std::string path;
    for (const std::string_view segment : segments) {
        path.append(path.empty() ? "" : "/").append(segment);
    }
    for (int attempt = 0; attempt < Attempts; ++attempt) {
        const int file = openat2(directory, path.c_str());
        if (file < 0 && isOpenat2Missing(directory, errno)) {
            linkPolicy.store(LinkPolicy::None, std::memory_order_relaxed);
            return std::nullopt;
        }
        if (file >= 0 || (errno != EAGAIN && errno != EINTR)) {
            return opened(file);
        }
    }
    return OwnFile();
}

#else

std::optional<OwnFile> openBeneath(int /*directory*/, std::span<const std::string_view> /*segments*/) {
    return std::nullopt;
}

#endif

} // namespace

std::atomic<LinkPolicy> linkPolicy{LinkPolicy::Beneath};

#ifdef VIREO_OPENAT2

bool isOpenat2Missing(int directory, int error) {
    // Filters of system calls say EPERM, but so do others, of single files.
    if (error != EPERM) {
        return error == ENOSYS;
    }
    const int self = openat2(directory, ".");
    const bool isMissing = self < 0 && errno == EPERM;
    const OwnFile closing = opened(self);
    errno = error;
    return isMissing;
}

#else

bool isOpenat2Missing(int /*directory*/, int /*error*/) {
    return true;
}

#endif

bool isShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO;
}

FoundFile openFile(const std::string& path) {
    // The system would take the path up to a zero byte for all of it.
    return path.find('\0') == std::string::npos ? found(opened(::open(path.c_str(), OpenFlags))) : FoundFile{};
}

FileRoot::FileRoot(const std::string& path)
    : directory_(opened(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))) {
    if (!directory_.isOpen()) {
        throwSystemError(errno, "the directory of files " + path);
    }
}

FoundFile FileRoot::open(std::span<const std::string_view> segments) const {
    const int directory = descriptorOf(directory_);
    if (segments.empty()) {
        return found(opened(::openat(directory, ".", OpenFlags)));
    }
    if (std::optional<OwnFile> file = openBeneath(directory, segments)) {
        return found(std::move(*file));
    }
    return found(openWithoutLinks(directory, segments));
}

std::vector<DirectoryEntry> FileRoot::list(const FoundFile& directory) {
    std::vector<DirectoryEntry> entries;
    const int own = ::openat(descriptorOf(directory.file), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(own < 0 ? nullptr : ::fdopendir(own), ::closedir);
    if (!stream) {
        if (own >= 0) {
            ::close(own);
        }
        return entries;
    }
    // The stream is this thread's own. NOLINTNEXTLINE(concurrency-mt-unsafe)
    while (const dirent* const entry = ::readdir(stream.get())) {
        struct stat status {};
        if (::fstatat(::dirfd(stream.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) {
            entries.push_back({entry->d_name, S_ISDIR(status.st_mode), static_cast<std::uint64_t>(status.st_size)});
        }
    }
    return entries;
}

} // namespace vireo::impl
