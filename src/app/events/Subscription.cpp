#include "app/events/Subscription.h"

#include "app/events/ChannelState.h"
#include "app/kernel/Courier.h"
#include "frame/ExceptionLog.h"

#include <utility>

namespace vireo::impl {

Subscription::Subscription(const std::shared_ptr<ChannelState>& channel, const std::shared_ptr<Courier>& courier,
                           std::unique_ptr<EventOutput> output, std::string greeting)
    : channel_(channel), courier_(courier), output_(std::move(output)), greeting_(std::move(greeting)) {}

Subscription::~Subscription() = default;

void Subscription::end() noexcept {
    mark(Mark::End);
}

void Subscription::onEnd() noexcept {
    mark(Mark::Over);
}

void Subscription::mark(Mark mark) noexcept {
    Mark before = mark_.load();
    while (before < mark && !mark_.compare_exchange_weak(before, mark)) {
    }
    const std::shared_ptr<ChannelState> channel = channel_.lock();
    const std::shared_ptr<Courier> courier = courier_.lock();
    if (!channel || !courier) {
        return;
    }
    try {
        channel->wake(*courier);
    } catch (...) {
        // The next delivery or heartbeat sees the mark.
        ql::impl::logCurrentException("the end of an event stream", "app");
    }
}

} // namespace vireo::impl
