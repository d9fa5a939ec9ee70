// SPDX-License-Identifier: MIT
#pragma once

#include "app/events/EventRing.h"
#include "app/events/Subscription.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo {
class EventChannel;
}

namespace vireo::impl {

class Courier;
struct Answer;
struct RequestData;

/// What EventOptions says.
struct EventRules {
    EventRing::Limits limits{256, 1048576, 1048576};
    bool isReplayedToAll = false;     ///< to new listeners as well
    std::int64_t heartbeatMs = 25000; ///< 0: none
    std::optional<std::int64_t> retryMs;
    std::size_t maxListeners = 0; ///< 0: any number
};

/// A channel: its last events, and its listeners, which each run serves by its own courier.
///
/// A listener has a cursor. Whenever the courier looks, one that has taken all that it was given gets what is new from
/// its cursor on, up to MaxHandOverBytes or one larger event, which never waits; one that has not gets nothing, and is
/// looked at again at the next delivery or after LookMs. So it costs two hand-overs of memory at most, and is cut only
/// once the ring has lost what it is to get next.
///
/// The lock is a leaf: nothing is written under it, and no courier is called.
class ChannelState final : public std::enable_shared_from_this<ChannelState> {
public:
    /// Of a listener that is to come: until it is there, or the place is gone, the channel keeps what is published.
    class Place;

    static constexpr std::uint64_t MaxHandOverBytes = 262144;
    static constexpr std::int64_t LookMs = 50;
    /// So many heartbeats in a row; then others have their turn.
    static constexpr int BeatsATurn = 200;

    /// @param idPrefix of the ids of events that have none of their own; their numbers follow.
    ChannelState(const EventRules& rules, std::string idPrefix);
    ~ChannelState();
    ChannelState(const ChannelState&) = delete;
    ChannelState& operator=(const ChannelState&) = delete;

    /// It does not keep the channel from being closed with the last copy of what the application has.
    static std::shared_ptr<ChannelState> of(const EventChannel& channel);

    const EventRules& rules() const { return rules_; }

    // Any thread.
    /// @param text without an id: it is given one.
    void publish(const EventText& text) QL_EXCLUDES(mutex_);
    void close() QL_EXCLUDES(mutex_);
    /// The application has the channel no more: it closes, and who is to come yet gets all that is kept.
    void leave() QL_EXCLUDES(mutex_);
    std::size_t listeners() const QL_EXCLUDES(mutex_);

    /// @param lastId the last event that a listener has seen; empty: it has seen none.
    /// @return whether it has something to get, or to wait for.
    bool hasMore(std::string_view lastId) const QL_EXCLUDES(mutex_);
    /// @return null when there are as many listeners as there may be.
    std::shared_ptr<Place> reserve(std::string_view lastId) QL_EXCLUDES(mutex_);
    /// @param place that nobody has taken.
    /// @return false when there is nothing to get any more, or the courier has stopped.
    bool add(const std::shared_ptr<Subscription>& subscription, const std::shared_ptr<Courier>& courier, Place& place)
        QL_EXCLUDES(mutex_);

    /// Any thread: that courier is to look at its listeners.
    void wake(const Courier& courier) QL_EXCLUDES(mutex_);

    /// The courier's thread: gives its listeners what they are due.
    void deliver(Courier& courier, std::int64_t nowMs) QL_EXCLUDES(mutex_);

private:
    using Subscriptions = std::list<std::shared_ptr<Subscription>>;
    /// The listeners of one run.
    struct Feed;
    using Feeds = std::vector<std::shared_ptr<Feed>>;
    /// What some listener was given; often the next one is due the same.
    struct Piece;
    /// How the channel was when a delivery began.
    struct View {
        std::uint64_t begin;
        std::uint64_t end;
        bool isClosed;
    };
    enum class Served : std::uint8_t { All, Lags, Gone };

    /// The number of the event that such a listener is to get first.
    std::uint64_t cursorOf(std::string_view lastId) const QL_REQUIRES(mutex_);
    /// Takes the place back, once.
    void release(Place& place) QL_REQUIRES(mutex_);
    /// Nobody will take the place.
    void giveUp(Place& place) QL_EXCLUDES(mutex_);
    /// Drops what is kept for those that may be behind, where nobody can be.
    void trim() QL_REQUIRES(mutex_);
    void end(bool isLeft) QL_EXCLUDES(mutex_);

    std::shared_ptr<Feed> find(const Courier& courier) const QL_REQUIRES(mutex_);
    void forget(const std::shared_ptr<Feed>& feed) QL_REQUIRES(mutex_);
    /// Notes that a delivery is asked for. @return whether none was.
    static bool queue(Feed& feed);
    /// @return those where none was.
    Feeds queueAll() QL_REQUIRES(mutex_);
    /// Asks the couriers of feeds that were queued; those that have stopped are forgotten.
    void ask(std::span<const std::shared_ptr<Feed>> feeds) QL_EXCLUDES(mutex_);

    // The courier's thread.
    std::shared_ptr<Feed> takeArrived(const Courier& courier, std::int64_t nowMs) QL_EXCLUDES(mutex_);
    View look() const QL_EXCLUDES(mutex_);
    Served serve(Subscription& listener, const View& view, Piece& piece) noexcept QL_EXCLUDES(mutex_);
    /// @return false where the ring has lost what comes next.
    bool hand(Subscription& listener, const View& view, Piece& piece) const QL_EXCLUDES(mutex_);
    bool readPiece(std::uint64_t cursor, Piece& piece) const QL_EXCLUDES(mutex_);
    /// Arms what is due next, or forgets the feed where nobody is left.
    void settle(const std::shared_ptr<Feed>& feed, std::size_t gone, bool lags, std::int64_t nowMs) QL_EXCLUDES(mutex_);
    /// Delivers again in a while to those that lag.
    void armLook(const std::shared_ptr<Feed>& feed, std::int64_t nowMs) QL_EXCLUDES(mutex_);
    void armBeat(const std::shared_ptr<Feed>& feed, std::int64_t nowMs);
    void beat(const std::shared_ptr<Feed>& feed, std::int64_t nowMs);

    const EventRules rules_;
    const std::string idPrefix_;
    mutable qlMutex mutex_;
    EventRing ring_ QL_GUARDED_BY(mutex_);
    Feeds feeds_ QL_GUARDED_BY(mutex_);
    std::size_t count_ QL_GUARDED_BY(mutex_) = 0;
    /// Places that nobody has taken.
    std::size_t reserved_ QL_GUARDED_BY(mutex_) = 0;
    bool isClosed_ QL_GUARDED_BY(mutex_) = false;
    bool isLeft_ QL_GUARDED_BY(mutex_) = false;
};

class ChannelState::Place {
public:
    explicit Place(std::shared_ptr<ChannelState> channel) : channel_(std::move(channel)) {}
    ~Place() { channel_->giveUp(*this); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

private:
    friend class ChannelState;

    const std::shared_ptr<ChannelState> channel_;
    // Under the channel's lock.
    std::uint64_t cursor_ = 0;
    bool isNew_ = false;  ///< for a listener that has seen no event
    bool isHeld_ = false; ///< and counted
};

/// Fills an answer that makes the client a listener: Response::events().
void answerEvents(RequestData& request, Answer& answer, const EventChannel& channel);

} // namespace vireo::impl
