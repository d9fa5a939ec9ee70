#include "app/events/ChannelState.h"

#include "app/kernel/Courier.h"
#include "frame/ExceptionLog.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <span>
#include <string>
#include <utility>

namespace vireo::impl {

struct ChannelState::Feed {
    explicit Feed(std::shared_ptr<Courier> itsCourier) : courier(std::move(itsCourier)) {}

    const std::shared_ptr<Courier> courier;
    // Under the channel's lock.
    Subscriptions arrived;
    std::size_t count = 0; ///< of all its listeners
    bool isQueued = false; ///< a delivery is asked for
    // The courier's. What is first is due its heartbeat first.
    Subscriptions listeners;
    std::optional<Courier::TimerId> beat;
    bool isLookDue = false; ///< a timer will see after those that lag
};

struct ChannelState::Piece {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::string text;
};

ChannelState::ChannelState(const EventRules& rules, std::string idPrefix)
    : rules_(rules), idPrefix_(std::move(idPrefix)), ring_(rules.limits) {}

ChannelState::~ChannelState() = default;

// ---- Any thread ----

void ChannelState::publish(const EventText& text) {
    Feeds queued;
    {
        const qlMutexLocker lock(mutex_);
        if (isClosed_) {
            return;
        }
        EventText named = text;
        std::string id = text.id.empty() ? idPrefix_ + std::to_string(ring_.end()) : std::string(text.id);
        named.id = id;
        auto bytes = std::make_shared<const std::string>(framed(named));
        if (bytes->size() > ring_.maxEventBytes()) {
            ql::impl::throwInvalidArgument("vireo::EventChannel::publish: an event of " +
                                           std::to_string(bytes->size()) + " bytes is larger than the channel keeps");
        }
        ring_.add(std::move(id), std::move(bytes), !feeds_.empty() || reserved_ > 0);
        queued = queueAll();
    }
    ask(queued);
}

void ChannelState::close() {
    end(false);
}

void ChannelState::leave() {
    end(true);
}

void ChannelState::end(bool isLeft) {
    Feeds queued;
    {
        const qlMutexLocker lock(mutex_);
        isLeft_ = isLeft && !isClosed_;
        isClosed_ = true;
        queued = queueAll();
    }
    ask(queued);
}

std::size_t ChannelState::listeners() const {
    const qlMutexLocker lock(mutex_);
    return count_;
}

bool ChannelState::hasMore(std::string_view lastId) const {
    const qlMutexLocker lock(mutex_);
    return !isClosed_ || cursorOf(lastId) < ring_.end();
}

std::shared_ptr<ChannelState::Place> ChannelState::reserve(std::string_view lastId) {
    auto place = std::make_shared<Place>(shared_from_this());
    const qlMutexLocker lock(mutex_);
    if (rules_.maxListeners != 0 && count_ + reserved_ >= rules_.maxListeners) {
        return nullptr;
    }
    place->cursor_ = cursorOf(lastId);
    place->isNew_ = lastId.empty();
    place->isHeld_ = true;
    ++reserved_;
    return place;
}

void ChannelState::giveUp(Place& place) {
    const qlMutexLocker lock(mutex_);
    release(place);
    trim();
}

void ChannelState::release(Place& place) {
    if (std::exchange(place.isHeld_, false)) {
        --reserved_;
    }
}

void ChannelState::trim() {
    if (feeds_.empty() && reserved_ == 0) {
        ring_.trimToReplay();
    }
}

std::uint64_t ChannelState::cursorOf(std::string_view lastId) const {
    return lastId.empty() && !rules_.isReplayedToAll ? ring_.end() : ring_.cursorBehind(lastId);
}

bool ChannelState::add(const std::shared_ptr<Subscription>& subscription, const std::shared_ptr<Courier>& courier,
                       Place& place) {
    std::shared_ptr<Feed> feed;
    {
        const qlMutexLocker lock(mutex_);
        // What is local to a handler was heard by nobody.
        const std::uint64_t cursor =
            isLeft_ && place.isNew_ ? std::min(place.cursor_, ring_.cursorBehind({})) : place.cursor_;
        if (isClosed_ && cursor == ring_.end()) {
            return false;
        }
        feed = find(*courier);
        if (!feed) {
            feed = std::make_shared<Feed>(courier);
            feeds_.push_back(feed);
        }
        feed->arrived.push_back(subscription);
        subscription->cursor_ = cursor;
        release(place);
        ++feed->count;
        ++count_;
        if (!queue(*feed)) {
            return true;
        }
    }
    ask(std::span(&feed, 1));
    const qlMutexLocker lock(mutex_);
    return std::find(feeds_.begin(), feeds_.end(), feed) != feeds_.end();
}

void ChannelState::wake(const Courier& courier) {
    std::shared_ptr<Feed> feed;
    {
        const qlMutexLocker lock(mutex_);
        feed = find(courier);
        if (!feed || !queue(*feed)) {
            return;
        }
    }
    ask(std::span(&feed, 1));
}

std::shared_ptr<ChannelState::Feed> ChannelState::find(const Courier& courier) const {
    const auto found = std::find_if(feeds_.begin(), feeds_.end(),
                                    [&](const std::shared_ptr<Feed>& feed) { return feed->courier.get() == &courier; });
    return found == feeds_.end() ? nullptr : *found;
}

ChannelState::Feeds ChannelState::queueAll() {
    Feeds queued;
    queued.reserve(feeds_.size());
    std::copy_if(feeds_.begin(), feeds_.end(), std::back_inserter(queued),
                 [](const std::shared_ptr<Feed>& feed) { return queue(*feed); });
    return queued;
}

bool ChannelState::queue(Feed& feed) {
    return !std::exchange(feed.isQueued, true);
}

void ChannelState::ask(std::span<const std::shared_ptr<Feed>> feeds) {
    std::exception_ptr failure;
    for (const std::shared_ptr<Feed>& feed : feeds) {
        bool hasStopped = false;
        try {
            hasStopped = !feed->courier->deliver(shared_from_this());
        } catch (...) {
            failure = std::current_exception();
            // For the next one to ask again.
            const qlMutexLocker lock(mutex_);
            feed->isQueued = false;
        }
        if (hasStopped) {
            const qlMutexLocker lock(mutex_);
            forget(feed);
        }
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void ChannelState::forget(const std::shared_ptr<Feed>& feed) {
    const auto found = std::find(feeds_.begin(), feeds_.end(), feed);
    if (found == feeds_.end()) {
        return;
    }
    count_ -= feed->count;
    feed->count = 0;
    feeds_.erase(found);
    trim();
}

// ---- The courier ----

void ChannelState::deliver(Courier& courier, std::int64_t nowMs) {
    const std::shared_ptr<Feed> feed = takeArrived(courier, nowMs);
    if (!feed) {
        return;
    }
    const View view = look();
    Piece piece;
    bool lags = false;
    Subscriptions gone;
    for (auto next = feed->listeners.begin(); next != feed->listeners.end();) {
        const auto listener = next++;
        switch (serve(**listener, view, piece)) {
        case Served::All:
            break;
        case Served::Lags:
            lags = true;
            break;
        case Served::Gone:
            gone.splice(gone.end(), feed->listeners, listener);
            break;
        }
    }
    settle(feed, gone.size(), lags, nowMs);
}

std::shared_ptr<ChannelState::Feed> ChannelState::takeArrived(const Courier& courier, std::int64_t nowMs) {
    const qlMutexLocker lock(mutex_);
    std::shared_ptr<Feed> feed = find(courier);
    if (feed) {
        feed->isQueued = false;
        for (const std::shared_ptr<Subscription>& arrived : feed->arrived) {
            arrived->beatMs_ = nowMs + rules_.heartbeatMs;
        }
        feed->listeners.splice(feed->listeners.end(), feed->arrived);
    }
    return feed;
}

ChannelState::View ChannelState::look() const {
    const qlMutexLocker lock(mutex_);
    return {ring_.begin(), ring_.end(), isClosed_};
}

ChannelState::Served ChannelState::serve(Subscription& listener, const View& view, Piece& piece) noexcept {
    const Subscription::Mark mark = listener.mark_.load();
    if (mark == Subscription::Mark::Over) {
        return Served::Gone;
    }
    EventOutput& output = *listener.output_;
    try {
        if (mark == Subscription::Mark::End) {
            output.end();
            return Served::Gone;
        }
        const bool isDue = listener.cursor_ != view.end || !listener.greeting_.empty();
        if (isDue && listener.cursor_ >= view.begin && !output.isEmpty()) {
            return Served::Lags;
        }
        if (isDue && !hand(listener, view, piece)) {
            output.cut();
            return Served::Gone;
        }
        if (listener.cursor_ < view.end) {
            return Served::Lags;
        }
        if (view.isClosed) {
            output.end();
            return Served::Gone;
        }
        return Served::All;
    } catch (...) {
        ql::impl::logCurrentException("an event stream", "app");
        output.cut();
        return Served::Gone;
    }
}

bool ChannelState::hand(Subscription& listener, const View& view, Piece& piece) const {
    if (listener.cursor_ == view.end) {
        listener.output_->write(std::exchange(listener.greeting_, {}));
        return true;
    }
    if (listener.cursor_ != piece.begin && !readPiece(listener.cursor_, piece)) {
        return false;
    }
    listener.output_->write(listener.greeting_.empty() ? piece.text
                                                       : std::exchange(listener.greeting_, {}) + piece.text);
    listener.cursor_ = piece.end;
    return true;
}

bool ChannelState::readPiece(std::uint64_t cursor, Piece& piece) const {
    EventRing::Batch batch;
    {
        const qlMutexLocker lock(mutex_);
        if (cursor < ring_.begin()) {
            return false;
        }
        batch = ring_.read(cursor, MaxHandOverBytes);
    }
    piece.begin = 0;
    piece.text.clear();
    for (const EventRing::Bytes& event : batch.events) {
        piece.text += *event;
    }
    piece.begin = cursor;
    piece.end = batch.end;
    return true;
}

void ChannelState::settle(const std::shared_ptr<Feed>& feed, std::size_t gone, bool lags, std::int64_t nowMs) {
    {
        const qlMutexLocker lock(mutex_);
        // Forgotten meanwhile where the courier has stopped.
        const std::size_t counted = std::min(gone, feed->count);
        feed->count -= counted;
        count_ -= counted;
        if (feed->count == 0) {
            forget(feed);
        }
    }
    if (feed->listeners.empty()) {
        if (feed->beat) {
            feed->courier->cancel(*std::exchange(feed->beat, std::nullopt));
        }
        return;
    }
    if (lags && !feed->isLookDue) {
        armLook(feed, nowMs);
    }
    armBeat(feed, nowMs);
}

void ChannelState::armLook(const std::shared_ptr<Feed>& feed, std::int64_t nowMs) {
    try {
        // Keeps a channel that nobody has any more until all have what was published.
        feed->courier->at(nowMs + LookMs, [channel = shared_from_this(), weakFeed = std::weak_ptr(feed)] {
            if (const std::shared_ptr<Feed> itsFeed = weakFeed.lock()) {
                itsFeed->isLookDue = false;
                channel->deliver(*itsFeed->courier, itsFeed->courier->nowMs());
            }
        });
        feed->isLookDue = true;
    } catch (...) {
        // There was no memory for it. At once, then: who lags must not wait for the next event.
        wake(*feed->courier);
    }
}

void ChannelState::armBeat(const std::shared_ptr<Feed>& feed, std::int64_t nowMs) {
    if (rules_.heartbeatMs == 0 || feed->beat || feed->listeners.empty()) {
        return;
    }
    // Behind what else is due.
    const std::int64_t dueMs = std::max(feed->listeners.front()->beatMs_, nowMs);
    feed->beat = feed->courier->at(dueMs, [channel = weak_from_this(), weakFeed = std::weak_ptr(feed)] {
        const std::shared_ptr<ChannelState> here = channel.lock();
        const std::shared_ptr<Feed> itsFeed = weakFeed.lock();
        if (here && itsFeed) {
            here->beat(itsFeed, itsFeed->courier->nowMs());
        }
    });
}

void ChannelState::beat(const std::shared_ptr<Feed>& feed, std::int64_t nowMs) {
    feed->beat.reset();
    Subscriptions& listeners = feed->listeners;
    for (int i = 0; i < BeatsATurn && !listeners.empty() && listeners.front()->beatMs_ <= nowMs; ++i) {
        Subscription& listener = *listeners.front();
        try {
            if (listener.mark_.load() == Subscription::Mark::None && listener.output_->isEmpty()) {
                listener.output_->write(":\n\n");
            }
        } catch (...) {
            ql::impl::logCurrentException("the heartbeat of an event stream", "app");
        }
        listener.beatMs_ = nowMs + rules_.heartbeatMs;
        listeners.splice(listeners.end(), listeners, listeners.begin());
    }
    armBeat(feed, nowMs);
}

} // namespace vireo::impl
