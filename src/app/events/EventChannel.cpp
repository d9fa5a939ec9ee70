#include "vireo/app/EventChannel.h"

#include "app/events/ChannelState.h"
#include "app/kernel/LongestTime.h"
#include "frame/ExceptionLog.h"
#include "frame/InvalidArgument.h"
#include "vireo/support/qlRandomUtils.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace vireo {

namespace impl {

std::shared_ptr<ChannelState> ChannelState::of(const EventChannel& channel) {
    return channel.state_->shared_from_this();
}

} // namespace impl

namespace {

void require(bool isRight, const char* what) {
    if (!isRight) {
        ql::impl::throwInvalidArgument(std::string("vireo::EventOptions: ") + what);
    }
}

void leave(impl::ChannelState& channel) noexcept {
    try {
        channel.leave();
    } catch (...) {
        ql::impl::logCurrentException("the end of an event channel", "app");
    }
}

/// Random, so that the events of this channel are not taken for those of another: a client may come back after a
/// restart, or to another instance.
std::string makeIdPrefix() {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::array<char, 8> bytes{};
    qlRandomUtils::Rand(bytes.data(), bytes.size());
    std::string prefix;
    for (const char byte : bytes) {
        prefix += Digits[static_cast<unsigned char>(byte) / 16];
        prefix += Digits[static_cast<unsigned char>(byte) % 16];
    }
    return prefix + '-';
}

} // namespace

EventOptions::EventOptions() : rules_(std::make_unique<impl::EventRules>()) {}

EventOptions::EventOptions(const EventOptions& other) : rules_(std::make_unique<impl::EventRules>(*other.rules_)) {}

EventOptions& EventOptions::operator=(const EventOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

EventOptions::~EventOptions() = default;

EventOptions& EventOptions::replay(std::size_t events, std::uint64_t bytes) {
    rules_->limits.replayEvents = events;
    rules_->limits.replayBytes = bytes;
    return *this;
}

EventOptions& EventOptions::replayToAll() {
    rules_->isReplayedToAll = true;
    return *this;
}

EventOptions& EventOptions::slowLimit(std::uint64_t bytes) {
    require(bytes > 0, "a slowLimit of no bytes");
    rules_->limits.slowBytes = bytes;
    return *this;
}

EventOptions& EventOptions::heartbeat(std::chrono::milliseconds interval) {
    require(interval.count() == 0 || (interval.count() >= 10 && interval <= impl::LongestTime),
            "a heartbeat below 10 ms or above 100 years");
    rules_->heartbeatMs = interval.count();
    return *this;
}

EventOptions& EventOptions::retry(std::chrono::milliseconds wait) {
    require(wait.count() >= 0, "a negative retry");
    rules_->retryMs = wait.count();
    return *this;
}

EventOptions& EventOptions::maxListeners(std::size_t count) {
    rules_->maxListeners = count;
    return *this;
}

// With what the copies share the channel is left; a courier that works for it has a reference of its own.
EventChannel::EventChannel(const EventOptions& options) {
    auto state = std::make_shared<impl::ChannelState>(*options.rules_, makeIdPrefix());
    state_ = std::shared_ptr<impl::ChannelState>(state.get(), [state](impl::ChannelState*) { leave(*state); });
}

EventChannel::EventChannel(const EventChannel& other) = default;

EventChannel& EventChannel::operator=(const EventChannel& other) = default;

EventChannel::~EventChannel() = default;

void EventChannel::send(std::string_view data, std::string_view event, std::string_view id,
                        const std::chrono::milliseconds* retry) const {
    state_->publish({data, event, id, retry ? std::optional(static_cast<std::int64_t>(retry->count())) : std::nullopt});
}

std::size_t EventChannel::listeners() const {
    return state_->listeners();
}

void EventChannel::close() const {
    state_->close();
}

} // namespace vireo
