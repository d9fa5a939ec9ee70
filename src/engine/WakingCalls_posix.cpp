#include "engine/WakingCalls.h"

#include <NativeSockets.h>
#include <microhttpd.h>

namespace ql::impl {

void resumeInEngine(MHD_Connection* connection) {
    MHD_resume_connection(connection);
}

bool addToEngine(MHD_Daemon* daemon, std::uint64_t socket, const sockaddr* address, std::size_t addressSize) {
    return MHD_add_connection(daemon, static_cast<MHD_socket>(socket), address, static_cast<socklen_t>(addressSize)) ==
           MHD_YES;
}

} // namespace ql::impl
