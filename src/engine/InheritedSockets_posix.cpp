#include "engine/InheritedSockets.h"

#include <charconv>
#include <cstdlib>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace ql::impl {

namespace {

std::optional<int> numberIn(const char* variable) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): an application changes its environment before it has threads, if at all
    const char* const value = std::getenv(variable);
    const std::string_view text = value == nullptr ? "" : value;
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

} // namespace

std::vector<std::uint64_t> inheritedSockets() {
    constexpr int First = 3;
    std::vector<std::uint64_t> sockets;
    if (numberIn("LISTEN_PID") != ::getpid()) {
        return sockets;
    }
    const int count = numberIn("LISTEN_FDS").value_or(0);
    for (int i = 0; i < count; ++i) {
        const int socket = First + i;
        sockets.push_back(static_cast<std::uint64_t>(socket));
        if (::fcntl(socket, F_SETFD, FD_CLOEXEC) != 0) {
            // It is not there, which a start will say; nor are those behind it.
            break;
        }
    }
    return sockets;
}

} // namespace ql::impl
