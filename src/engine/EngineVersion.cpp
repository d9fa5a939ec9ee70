#include "engine/EngineVersion.h"

#include <microhttpd.h>

namespace ql::impl {

const char* engineVersion() {
    return MHD_get_version();
}

} // namespace ql::impl
