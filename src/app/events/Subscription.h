// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/EndListener.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vireo::impl {

class ChannelState;
class Courier;

/// Where the events of one listener go. The courier alone calls it.
class EventOutput {
public:
    virtual ~EventOutput() = default;
    /// Whether all that was written is taken.
    virtual bool isEmpty() const = 0;
    /// Hands the text over, whole and at once. Doesn't wait where isEmpty().
    virtual void write(std::string_view text) = 0;
    /// The stream is complete.
    virtual void end() = 0;
    /// The listener is too slow.
    virtual void cut() noexcept = 0;
};

/// One listener of one channel. The courier of its run alone writes to it; others leave marks.
class Subscription final : public EndListener {
public:
    /// @param greeting what it gets before all events.
    Subscription(const std::shared_ptr<ChannelState>& channel, const std::shared_ptr<Courier>& courier,
                 std::unique_ptr<EventOutput> output, std::string greeting);
    ~Subscription() override;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    /// Ends the stream, as the run ends. Any thread.
    void end() noexcept;
    /// The exchange is over, and with it the subscription.
    void onEnd() noexcept override;

private:
    friend class ChannelState;
    enum class Mark : std::uint8_t { None, End, Over };

    void mark(Mark mark) noexcept;

    const std::weak_ptr<ChannelState> channel_;
    const std::weak_ptr<Courier> courier_;
    /// Only rises.
    std::atomic<Mark> mark_{Mark::None};
    // The courier's, once the channel has it.
    const std::unique_ptr<EventOutput> output_;
    std::string greeting_;
    /// The number of the event that comes next.
    std::uint64_t cursor_ = 0;
    std::int64_t beatMs_ = 0;
};

} // namespace vireo::impl
