#include "engine/ResumeCall.h"

#include <mutex>

#include <microhttpd.h>

namespace ql::impl {

namespace {

/// Wine refuses to send on a socket while another thread's sending is about to return. The engine, which wakes its
/// thread so, takes that for success: of two connections that are resumed at once one would stay where it is.
std::mutex oneAtATime;

} // namespace

void resumeInEngine(MHD_Connection* connection) {
    const std::lock_guard lock(oneAtATime);
    MHD_resume_connection(connection);
}

} // namespace ql::impl
