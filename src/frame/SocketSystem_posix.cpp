#include "frame/SocketSystem.h"

namespace ql::impl {

bool startSocketSystem() {
    return true;
}

void stopSocketSystem() {}

} // namespace ql::impl
