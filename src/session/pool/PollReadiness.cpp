#include "session/pool/PollReadiness.h"

#include "vireo/support/qlThread.h"

#include <algorithm>
#include <limits>
#include <system_error>
#include <utility>

namespace ql::impl {

namespace {

/// After how long a poll is tried again for which memory was short.
constexpr int RetryMs = 10;

std::uint32_t numberOf(std::uint64_t id) {
    return static_cast<std::uint32_t>(id);
}

} // namespace

PollReadiness::PollReadiness() {
    signal_.open();
    if (signal_.getSocket() == InvalidSocket) {
        throw std::system_error(lastSocketError(), std::system_category(), "nobody could end a wait");
    }
    set_.reserve(0);
}

PollReadiness::~PollReadiness() = default;

void PollReadiness::watch(WatchedSocket& watched) {
    const qlMutexLocker lock(mutex_);
    const std::uint32_t number = numberOf(watched.id);
    if (number >= wishes_.size()) {
        const std::size_t count = std::max<std::size_t>(number + std::size_t{1}, 2 * wishes_.size());
        changed_.reserve(count);
        wishes_.resize(count);
    }
    Wish& wish = wishes_[number];
    wish.watched = watched;
    wish.isWatched = true;
    noteChange(number);
}

void PollReadiness::rearm(WatchedSocket& watched, bool forReading, bool forWriting) noexcept {
    watched.forReading = forReading;
    watched.forWriting = forWriting;
    const qlMutexLocker lock(mutex_);
    Wish& wish = wishes_[numberOf(watched.id)];
    const bool isAsBefore = wish.watched.forReading == forReading && wish.watched.forWriting == forWriting;
    if (wish.index != NotPolled && isAsBefore) {
        return;
    }
    wish.watched = watched;
    noteChange(numberOf(watched.id));
}

void PollReadiness::forget(const WatchedSocket& watched) noexcept {
    const qlMutexLocker lock(mutex_);
    Wish& wish = wishes_[numberOf(watched.id)];
    wish.isWatched = false;
    if (wish.index != NotPolled) {
        noteChange(numberOf(watched.id));
    }
}

Readiness::WaitResult PollReadiness::wait(std::span<News> news, bool blocking) {
    const qlMutexLocker lock(mutex_);
    WaitResult result;
    for (bool isFirst = true;; isFirst = false) {
        result.woken = std::exchange(isWoken_, false);
        result.alarm = takeAlarm();
        if (result.count > 0 || result.woken || result.alarm || (!blocking && !isFirst)) {
            break;
        }
        if (!isPolling_) {
            result.count = poll(news, blocking);
        } else if (blocking) {
            ++inLine_;
            placeIsFree_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
            --inLine_;
        }
    }
    if (!isPolling_ && inLine_ > 0) {
        placeIsFree_.wakeOne();
    }
    return result;
}

void PollReadiness::wake() noexcept {
    const qlMutexLocker lock(mutex_);
    isWoken_ = true;
    if (inLine_ > 0) {
        placeIsFree_.wakeOne();
    } else {
        interrupt();
    }
}

void PollReadiness::setAlarm(std::int64_t inMs) noexcept {
    const Clock::time_point now = Clock::now();
    const qlMutexLocker lock(mutex_);
    const auto most = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now).count();
    alarm_ = inMs < most ? now + std::chrono::milliseconds(inMs) : Clock::time_point::max();
    interrupt();
}

void PollReadiness::noteChange(std::uint32_t number) noexcept {
    if (!wishes_[number].isChanged) {
        wishes_[number].isChanged = true;
        changed_.push_back(number);
    }
    interrupt();
}

void PollReadiness::interrupt() noexcept {
    if (isPolling_ && !isInterrupted_) {
        isInterrupted_ = true;
        signal_.raise();
    }
}

std::size_t PollReadiness::poll(std::span<News> news, bool blocking) {
    const int mostMs = applyChanges() ? -1 : RetryMs;
    const int timeoutMs = blocking ? timeoutWithin(mostMs) : 0;
    isPolling_ = true;
    mutex_.unlock();
    const int found = set_.wait(timeoutMs);
    if (found < 0) {
        // For want of memory, for instance, and at once.
        qlThread::msleep(RetryMs);
    }
    mutex_.lock();
    isPolling_ = false;
    isInterrupted_ = false;
    return found > 0 ? collect(news) : 0;
}

std::size_t PollReadiness::collect(std::span<News> news) {
    std::size_t count = 0;
    std::size_t index = set_.findNews(0);
    while (index < polled_.size() && count < news.size()) {
        const Polled polled = polled_[index];
        const WatchedSocket& watched = wishes_[polled.number].watched;
        if (watched.id == polled.id) {
            const SocketEvents events = set_.getEvents(index);
            // What is no socket shows that when it is read.
            const bool isBroken = events.broken || !(events.readable || events.writable);
            news[count++] = {polled.id, events.readable, events.writable, isBroken};
        }
        takeOut(index);
        index = set_.findNews(index);
    }
    return count;
}

bool PollReadiness::applyChanges() {
    try {
        polled_.reserve(polled_.size() + changed_.size());
        set_.reserve(polled_.size() + changed_.size());
    } catch (...) {
        return false;
    }
    for (const std::uint32_t number : changed_) {
        Wish& wish = wishes_[number];
        wish.isChanged = false;
        if (wish.index != NotPolled) {
            takeOut(wish.index);
        }
        const WatchedSocket& watched = wish.watched;
        if (wish.isWatched && (watched.forReading || watched.forWriting)) {
            wish.index = polled_.size();
            polled_.push_back({watched.id, number});
            set_.add(watched.socket, watched.forWriting);
            if (!watched.forReading) {
                set_.setForWritingOnly(wish.index);
            }
        }
    }
    changed_.clear();
    return true;
}

void PollReadiness::takeOut(std::size_t index) {
    const std::size_t last = polled_.size() - 1;
    wishes_[polled_[index].number].index = NotPolled;
    if (index != last) {
        polled_[index] = polled_[last];
        wishes_[polled_[index].number].index = index;
        set_.renumber(last, index);
    }
    polled_.pop_back();
    set_.cutOff(last);
}

int PollReadiness::timeoutWithin(int mostMs) const {
    if (alarm_ == Clock::time_point::max()) {
        return mostMs;
    }
    const auto leftMs = std::chrono::ceil<std::chrono::milliseconds>(alarm_ - Clock::now()).count();
    constexpr std::int64_t Longest = std::numeric_limits<int>::max();
    const auto timeoutMs = static_cast<int>(std::clamp<std::int64_t>(leftMs, 0, Longest));
    return mostMs < 0 ? timeoutMs : std::min(timeoutMs, mostMs);
}

bool PollReadiness::takeAlarm() {
    const bool isDue = alarm_ != Clock::time_point::max() && alarm_ <= Clock::now();
    if (isDue) {
        alarm_ = Clock::time_point::max();
    }
    return isDue;
}

} // namespace ql::impl
