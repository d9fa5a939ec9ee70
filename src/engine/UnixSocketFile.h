// SPDX-License-Identifier: MIT
#pragma once

#include "engine/StartFailure.h"

#include <memory>
#include <string>

#include <sys/stat.h>

namespace ql::impl {

/// The file of a Unix socket that listens. Destruction removes it, unless another stands in its place; it has to come
/// before the socket is closed, for until then no other file can have the same number.
///
/// Servers that start at one path take turns by a lock of its directory: between the moment in which one finds nobody
/// there and the moment in which it listens, nobody else looks.
class UnixSocketFile {
public:
    /// Has a socket listen at a path, from which the file of a socket is removed when nobody answers on it.
    /// @param mode permissions of the file.
    /// @return null when it cannot; then `failure` says why.
    static std::unique_ptr<UnixSocketFile> Listen(int socket, const std::string& path, unsigned int mode, int backlog,
                                                  StartFailure& failure);

    ~UnixSocketFile();
    UnixSocketFile(const UnixSocketFile&) = delete;
    UnixSocketFile& operator=(const UnixSocketFile&) = delete;

private:
    explicit UnixSocketFile(const std::string& path);

    bool lockDirectory(StartFailure& failure);
    bool makeRoom(StartFailure& failure) const;
    bool listen(int socket, unsigned int mode, int backlog, StartFailure& failure);
    bool isThere(struct stat& found) const;

    const std::string path_;
    const std::string name_;
    /// Open as long as the file is there, for the path may lead elsewhere by then.
    int directory_ = -1;
    /// As it was made; unset until then.
    bool isMade_ = false;
    struct stat made_ {};
};

} // namespace ql::impl
