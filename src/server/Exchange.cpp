#include "server/Exchange.h"

#include "streams/PollingWait.h"

#include <utility>

namespace ql::impl {

void Exchange::countBody(std::size_t size) {
    receivedBytes_ += size;
    if (bodyLeft_ != UnknownLength) {
        bodyLeft_ -= size;
    }
}

void Exchange::wait(HttpBaseRequest& request, std::int64_t nowMs) {
    // A connection that was suspended right after the engine has read from it is read again when it is resumed, before
    // anything else. That would lose the request of a client that has ended its sending. Called again, the engine has
    // forgotten that it wanted to read. It also spares a fast worker's request the suspension.
    if (!std::exchange(hasWaited_, true)) {
        return;
    }
    if (suspension_.suspend() == Suspension::Outcome::Finished) {
        // The server stops. Until then the engine calls again and again.
        PollingWait::ofThisThread().wait(request, nowMs);
    }
}

} // namespace ql::impl
