#include "engine/WakingCalls.h"

#include <mutex>

#include <NativeSockets.h>
#include <microhttpd.h>

namespace ql::impl {

namespace {

/// Wine refuses to send on a socket while another thread's sending is about to return. The engine, which wakes its
/// thread so, takes that for success: of two connections that are resumed at once one would stay where it is, and so
/// would one that is added.
std::mutex oneAtATime;

} // namespace

void resumeInEngine(MHD_Connection* connection) {
    const std::lock_guard lock(oneAtATime);
    MHD_resume_connection(connection);
}

bool addToEngine(MHD_Daemon* daemon, std::uint64_t socket, const sockaddr* address, std::size_t addressSize) {
    const std::lock_guard lock(oneAtATime);
    return MHD_add_connection(daemon, static_cast<MHD_socket>(socket), address, static_cast<socklen_t>(addressSize)) ==
           MHD_YES;
}

} // namespace ql::impl
