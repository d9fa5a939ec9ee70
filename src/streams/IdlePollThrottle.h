#pragma once

#include "vireo/support/qlTimer.h"

#include <cstdint>

namespace ql {

/// Slows a daemon thread down that polls for a late response or body: free for the first 100 ms, then about one poll
/// every 45 ms, with at least 10 ms of sleep each.
///
/// There is one per thread, for all connections that the thread serves: any of them that gets on clears it.
class IdlePollThrottle {
public:
    /// The calling thread's.
    static IdlePollThrottle& ofThisThread();

    /// There was something to do: polling is free again.
    void clear();

    /// There was nothing to do: sleeps when that has been so for long enough. Until then it gives the core to a thread
    /// that waits for one, most likely the one that makes what is polled for.
    void run();

    /// What run() sleeps this time, in milliseconds; 0 while polling is free. The next period begins.
    std::int64_t takeDueSleepMs();

private:
    qlTimer starvation_{false};
    qlTimer pacing_{false};
};

} // namespace ql
