#pragma once

#include <list>
#include <mutex>
#include <string>

namespace bench {

class EventRequest;

/// The event streams that are open. Any thread.
class EventBoard {
public:
    /// @param request its answer is released.
    void join(EventRequest& request);

    /// Sends an event to all of them.
    void publish(const std::string& event);

    /// Ends all of them, and whatever joins later.
    void end();

private:
    std::mutex mutex_;
    std::list<EventRequest*> streams_;
    bool ended_ = false;
};

} // namespace bench
