#include "EventBoard.h"

#include "skeleton/RequestPool.h"

#include <algorithm>

namespace demo {

namespace {

/// The last event is kept anyway.
constexpr std::size_t MaxKeptBytes = 1048576;

/// Each line of the text as a data line, whatever ends it, so that no text can be anything but data.
std::string eventOf(std::string_view text) {
    std::string event;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
        event.append("data: ").append(text.substr(0, end)).append("\n");
        const std::size_t lineEnd = text.substr(end, 2) == "\r\n" ? 2 : 1;
        text.remove_prefix(std::min(end + lineEnd, text.size()));
    }
    return event + "\n";
}

} // namespace

std::size_t EventBoard::publish(std::string_view text) {
    const qlMutexLocker lock(mutex_);
    lastEvents_.push_back(eventOf(text));
    ++eventCount_;
    keptBytes_ += lastEvents_.back().size();
    while (keptBytes_ > MaxKeptBytes && lastEvents_.size() > 1) {
        keptBytes_ -= lastEvents_.front().size();
        lastEvents_.pop_front();
    }
    wakeStreams();
    return streams_.size();
}

void EventBoard::close() {
    const qlMutexLocker lock(mutex_);
    isClosed_ = true;
    wakeStreams();
}

std::size_t EventBoard::streamCount() const {
    const qlMutexLocker lock(mutex_);
    return streams_.size();
}

void EventBoard::wakeStreams() {
    for (skeleton::PooledRequest* const stream : streams_) {
        pool_.wake(*stream);
    }
}

EventStream::EventStream(EventBoard& board, skeleton::PooledRequest& request) : board_(board), request_(request) {
    const qlMutexLocker lock(board_.mutex_);
    position_ = board_.eventCount_;
    board_.streams_.insert(&request_);
    if (board_.isClosed_) {
        board_.pool_.wake(request_); // it has come after the news of that
    }
}

EventStream::~EventStream() {
    const qlMutexLocker lock(board_.mutex_);
    board_.streams_.erase(&request_);
}

EventStream::News EventStream::takeNews(std::size_t room) {
    const qlMutexLocker lock(board_.mutex_);
    const std::uint64_t firstKept = board_.eventCount_ - board_.lastEvents_.size();
    News news;
    news.isClosed = board_.isClosed_;
    news.missedSome = position_ < firstKept;
    for (position_ = std::max(position_, firstKept); position_ < board_.eventCount_; ++position_) {
        const std::string& event = board_.lastEvents_[static_cast<std::size_t>(position_ - firstKept)];
        if (event.size() > room - news.events.size()) {
            news.isMore = true;
            break;
        }
        news.events += event;
    }
    return news;
}

} // namespace demo
