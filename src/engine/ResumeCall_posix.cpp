#include "engine/ResumeCall.h"

#include <microhttpd.h>

namespace ql::impl {

void resumeInEngine(MHD_Connection* connection) {
    MHD_resume_connection(connection);
}

} // namespace ql::impl
