// SPDX-License-Identifier: MIT
#include "app/run/ServiceManager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace vireo::impl {

void tellServiceManager(const std::string& state) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): an application changes its environment before it has threads, if at all
    const char* const value = std::getenv("NOTIFY_SOCKET");
    const std::string path = value == nullptr ? "" : value;
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return;
    }
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    if (path.front() == '@') {
        // A name that is no file.
        address.sun_path[0] = '\0';
    }
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        return;
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    ::sendto(socket, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size);
    ::close(socket);
}

std::string reloadingState() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const long long microseconds = now.tv_sec * 1000000LL + now.tv_nsec / 1000;
    return "RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds);
}

} // namespace vireo::impl
