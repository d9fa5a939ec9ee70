// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace vireo::impl {

/// The signals that end a run or have it read its files anew, while it lives; then they do what they did before.
///
/// SIGINT or SIGTERM, Ctrl-C or Ctrl-Break on Windows: the first asks for the end, the second for the end at once, and
/// the third ends the process. SIGHUP asks for a reload, any number of times.
class Signals {
public:
    /// What has been asked for since the last wait().
    struct Wishes {
        bool stop = false;
        bool stopAtOnce = false;
        bool reload = false;
    };

    /// @param areTaken false: none, so that wait() returns by wake() alone.
    /// @throws std::logic_error when another object of the process has taken them.
    explicit Signals(bool areTaken);
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    /// Waits for a signal or wake(). One thread.
    Wishes wait();
    /// Lets a wait() that is under way, or the next one, return. Any thread.
    void wake();

private:
    struct Native;

    const std::unique_ptr<Native> native_;
};

} // namespace vireo::impl
