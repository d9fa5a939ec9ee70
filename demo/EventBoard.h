#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <string_view>

namespace skeleton {
class PooledRequest;
class RequestPool;
} // namespace skeleton

namespace demo {

class EventStream;

/// The events that were published, and the streams that send them. Any thread.
///
/// A stream holds no thread while nothing happens; an event gives each of them a turn at a worker. Only the last 128
/// KiB of events are kept: who falls behind by more takes no more memory, but has missed some.
///
/// Lock order: this lock, then the pool's.
class EventBoard {
public:
    /// @param pool serves the streams; outlives their requests.
    explicit EventBoard(skeleton::RequestPool& pool) : pool_(pool) {}

    /// Makes an event of a text of one or more lines. @return how many streams are to send it.
    std::size_t publish(std::string_view text) QL_EXCLUDES(mutex_);
    /// There will be no more events: streams are to end.
    void close() QL_EXCLUDES(mutex_);

    std::size_t streamCount() const QL_EXCLUDES(mutex_);

private:
    friend class EventStream;

    void wakeStreams() QL_REQUIRES(mutex_);

    skeleton::RequestPool& pool_;
    mutable qlMutex mutex_;
    /// The requests that are here exist: EventStream takes them out before they go, and waits for the lock to do so.
    std::set<skeleton::PooledRequest*> streams_ QL_GUARDED_BY(mutex_);
    /// As they are sent.
    std::deque<std::string> lastEvents_ QL_GUARDED_BY(mutex_);
    std::size_t keptBytes_ QL_GUARDED_BY(mutex_) = 0;
    /// All that there have been.
    std::uint64_t eventCount_ QL_GUARDED_BY(mutex_) = 0;
    bool isClosed_ QL_GUARDED_BY(mutex_) = false;
};

/// A request's place at the board. The request owns it, and gets a turn whenever there is news.
class EventStream {
public:
    /// What has happened since the last call.
    struct News {
        std::string events;      ///< as they are sent
        bool isMore = false;     ///< there was no room for the rest of them
        bool missedSome = false; ///< they are not kept any more
        bool isClosed = false;   ///< none will follow
    };

    /// From the next event on.
    EventStream(EventBoard& board, skeleton::PooledRequest& request);
    ~EventStream();
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    /// In the request's turns.
    /// @param room bytes; as many events as fit.
    News takeNews(std::size_t room);

private:
    EventBoard& board_;
    skeleton::PooledRequest& request_;
    /// How many events are behind it.
    std::uint64_t position_;
};

} // namespace demo
