#include "app/kernel/Courier.h"

#include "app/events/ChannelState.h"
#include "frame/ExceptionLog.h"

#include <algorithm>

namespace vireo::impl {

namespace {

/// @param work what is not to end the courier when it fails.
template <class Work>
void guarded(Work&& work) noexcept {
    try {
        work();
    } catch (...) {
        ql::impl::logCurrentException("the app's courier", "app");
    }
}

} // namespace

Courier::Courier(Clock clock) : clock_(clock) {}

Courier::~Courier() {
    stop();
}

void Courier::start() {
    startThread("app courier");
}

Courier::TimerId Courier::at(std::int64_t dueMs, std::function<void()> function) {
    const qlMutexLocker lock(mutex_);
    const TimerId timer(dueMs, ++lastNumber_);
    if (!isStopping_) {
        const auto added = timers_.emplace(timer, std::move(function)).first;
        if (added == timers_.begin()) {
            changed_.wakeOne();
        }
    }
    return timer;
}

bool Courier::cancel(TimerId timer) {
    Timers::node_type cancelled; // what the function holds goes without the lock
    const qlMutexLocker lock(mutex_);
    cancelled = timers_.extract(timer);
    return !cancelled.empty();
}

std::size_t Courier::timers() const {
    const qlMutexLocker lock(mutex_);
    return timers_.size();
}

bool Courier::deliver(std::shared_ptr<ChannelState> channel) {
    const qlMutexLocker lock(mutex_);
    if (isStopping_) {
        return false;
    }
    deliveries_.push_back(std::move(channel));
    changed_.wakeOne();
    return true;
}

void Courier::stop() {
    {
        const qlMutexLocker lock(mutex_);
        isStopping_ = true;
        changed_.wakeOne();
    }
    waitThread(NoTimeLimit);
    Timers dropped;
    const qlMutexLocker lock(mutex_);
    dropped.swap(timers_);
}

bool Courier::turn() {
    std::vector<std::shared_ptr<ChannelState>> deliveries;
    {
        const qlMutexLocker lock(mutex_);
        deliveries.swap(deliveries_);
    }
    for (const std::shared_ptr<ChannelState>& channel : deliveries) {
        guarded([&] { channel->deliver(*this, nowMs()); });
    }
    const Timers::node_type due = takeDue(nowMs());
    if (!due.empty()) {
        guarded(due.mapped());
    }
    return !deliveries.empty() || !due.empty();
}

Courier::Timers::node_type Courier::takeDue(std::int64_t nowMs) {
    const qlMutexLocker lock(mutex_);
    if (isStopping_ || timers_.empty() || timers_.begin()->first.first > nowMs) {
        return {};
    }
    return timers_.extract(timers_.begin());
}

void Courier::run() {
    while (waitForWork()) {
        turn();
    }
}

bool Courier::waitForWork() {
    const qlMutexLocker lock(mutex_);
    while (deliveries_.empty() && !isStopping_) {
        if (timers_.empty()) {
            changed_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
            continue;
        }
        constexpr std::int64_t MaxWaitMs = 3600000;
        const std::int64_t waitMs = timers_.begin()->first.first - nowMs();
        if (waitMs <= 0) {
            return true;
        }
        changed_.wait(&mutex_, static_cast<unsigned long>(std::min(waitMs, MaxWaitMs)));
    }
    return !deliveries_.empty();
}

} // namespace vireo::impl
