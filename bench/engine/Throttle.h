#pragma once

namespace bench {

/// Slows a daemon thread down that polls for a late answer, as the design has it: free for 100 ms, then a poll about
/// every 45 ms with at least 10 ms of sleep.
class Throttle {
public:
    static Throttle& ofThisThread();

    void clear() { starving_ = false; }
    void run();

private:
    bool starving_ = false;
    long long starvationStartMs_ = 0;
    long long paceStartMs_ = 0;
};

} // namespace bench
