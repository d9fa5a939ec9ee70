#include "server/Front.h"

#include "engine/ConnectionTracking.h"
#include "server/ClientLife.h"

namespace ql::impl {

void beginOrEndConnection(Front& front, EngineConnection connection, void*& slot, bool started) noexcept {
    if (started) {
        front.admissions.begin(connection.socket());
    } else {
        front.admissions.leave(connection.socket());
    }
    if (front.serving != nullptr) {
        beginOrEndClient(*front.serving, connection, slot, started);
    } else {
        trackConnection(slot, started, isTrackingLogged());
    }
}

} // namespace ql::impl
