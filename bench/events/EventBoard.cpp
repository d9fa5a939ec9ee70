#include "events/EventBoard.h"

#include "events/EventRequest.h"

namespace bench {

namespace {

bool dropIfGone(EventRequest* request) {
    if (!request->isSchedulerDone()) {
        return false;
    }
    request->leave();
    return true;
}

} // namespace

void EventBoard::join(EventRequest& request) {
    const std::lock_guard lock(mutex_);
    if (ended_) {
        request.end();
        return;
    }
    // Two of the oldest for each new one, so that those who have gone never outnumber the others.
    for (int i = 0; i < 2 && !streams_.empty(); ++i) {
        if (dropIfGone(streams_.front())) {
            streams_.pop_front();
        } else {
            streams_.splice(streams_.end(), streams_, streams_.begin());
        }
    }
    streams_.push_back(&request);
}

void EventBoard::publish(const std::string& event) {
    const std::lock_guard lock(mutex_);
    streams_.remove_if(dropIfGone);
    for (EventRequest* const request : streams_) {
        request->send(event);
    }
}

void EventBoard::end() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    for (EventRequest* const request : streams_) {
        request->end();
    }
    streams_.clear();
}

} // namespace bench
