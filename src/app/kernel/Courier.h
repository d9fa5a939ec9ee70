// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlSystemUtils.h"
#include "vireo/support/qlThread.h"
#include "vireo/support/qlWaitCondition.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace vireo::impl {

class ChannelState;

/// The one thread of a run that does what is due: time-outs of answers, and deliveries and heartbeats of event streams.
/// No function of an application runs here, and none of its functions waits for a client. Members are for any thread,
/// but stop() for any other than its own.
class Courier final : private qlThread {
public:
    /// Monotonic milliseconds.
    using Clock = std::int64_t (*)();
    /// When it is due, and a number that makes it unique.
    using TimerId = std::pair<std::int64_t, std::uint64_t>;

    /// Without a thread so far: then nothing happens but in turn().
    explicit Courier(Clock clock = qlSystemUtils::GetTimeBaseMs);
    /// stop().
    ~Courier() override;
    Courier(const Courier&) = delete;
    Courier& operator=(const Courier&) = delete;

    /// Starts the thread.
    /// @throws std::system_error
    void start();

    /// Has the function called once, at that time or later. After stop() it is dropped.
    TimerId at(std::int64_t dueMs, std::function<void()> function) QL_EXCLUDES(mutex_);
    /// @return false when it runs, has run or was dropped.
    bool cancel(TimerId timer) QL_EXCLUDES(mutex_);
    /// How many wait for their time.
    std::size_t timers() const QL_EXCLUDES(mutex_);

    /// Has the channel deliver what is new to its listeners of this run.
    /// @return false after stop().
    bool deliver(std::shared_ptr<ChannelState> channel) QL_EXCLUDES(mutex_);

    /// Ends behind the deliveries that were asked for; timers are dropped. Joins the thread.
    void stop() QL_EXCLUDES(mutex_);

    /// Does what was asked for, deliveries first, and of what is due the first only: so nobody waits for many. For the
    /// thread, and for tests that have none.
    /// @return whether there was something.
    bool turn() QL_EXCLUDES(mutex_);

    std::int64_t nowMs() const { return clock_(); }

private:
    using Timers = std::map<TimerId, std::function<void()>>;

    void run() override;
    /// @return false at the end.
    bool waitForWork() QL_EXCLUDES(mutex_);
    Timers::node_type takeDue(std::int64_t nowMs) QL_EXCLUDES(mutex_);

    const Clock clock_;
    mutable qlMutex mutex_;
    qlWaitCondition changed_;
    Timers timers_ QL_GUARDED_BY(mutex_);
    std::uint64_t lastNumber_ QL_GUARDED_BY(mutex_) = 0;
    std::vector<std::shared_ptr<ChannelState>> deliveries_ QL_GUARDED_BY(mutex_);
    bool isStopping_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace vireo::impl
