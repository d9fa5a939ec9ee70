#include "engine/SendProgress.h"

#include <NativeSockets.h>

#include <cstddef>

#ifdef __linux__
#    include <linux/tcp.h>
#    include <sys/ioctl.h>
#endif

namespace ql::impl {

std::optional<std::uint64_t> acknowledgedBytes([[maybe_unused]] std::uint64_t socket) {
// The C library's own header for it does not know the member.
#ifdef __linux__
    tcp_info info{};
    socklen_t size = sizeof info;
    constexpr std::size_t Needed = offsetof(tcp_info, tcpi_bytes_acked) + sizeof info.tcpi_bytes_acked;
    if (::getsockopt(static_cast<int>(socket), IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && size >= Needed) {
        return info.tcpi_bytes_acked;
    }
#endif
    return std::nullopt;
}

bool hasEverythingArrived([[maybe_unused]] std::uint64_t socket) {
#ifdef __linux__
    int waiting = 0;
    return ::ioctl(static_cast<int>(socket), TIOCOUTQ, &waiting) != 0 || waiting == 0;
#else
    return true;
#endif
}

void dropUnsent(std::uint64_t socket) {
    const linger none{1, 0};
    ::setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

} // namespace ql::impl
