#include "session/pool/TaskPoolState.h"

#include "vireo/support/qlSystemUtils.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace ql::impl {

namespace {

/// Under load one wait brings the work of many turns, each of which costs about as much as a wait. Few enough that a
/// thread which is free takes its share of the news by waiting itself, and none has to be woken for them. Between 4
/// and 64 the time that a small message costs does not differ measurably, with 64 sockets or 1,000.
constexpr std::size_t NewsPerLook = 16;

/// So many turns may a thread give before it looks for news although tasks wait: those that always have more to do
/// are not to keep out the others.
constexpr unsigned TurnsPerLook = 64;

/// The most that a timer is late for the company of others.
constexpr std::int64_t MostSlackMs = 1024;

/// The next moment at which timers are looked for that have about as long to go.
std::int64_t inCompany(std::int64_t dueMs, std::int64_t nowMs) {
    const std::int64_t slackMs = std::min((dueMs - nowMs) / 16, MostSlackMs);
    if (slackMs <= 1) {
        return dueMs;
    }
    const auto stepMs = static_cast<std::int64_t>(std::bit_floor(static_cast<std::uint64_t>(slackMs)));
    return (dueMs / stepMs + 1) * stepMs;
}

} // namespace

TaskPoolState::TaskPoolState(std::unique_ptr<Readiness> readiness) : readiness_(std::move(readiness)) {}

TaskPoolState::~TaskPoolState() = default;

bool TaskPoolState::add(const std::shared_ptr<TaskPoolState>& pool, std::shared_ptr<PoolTask> task) {
    return pool->addToThis(pool, task);
}

bool TaskPoolState::addToThis(const std::shared_ptr<TaskPoolState>& self, std::shared_ptr<PoolTask>& task) {
    PoolTask& added = *task;
    std::shared_ptr<Readiness> toWake;
    {
        const qlMutexLocker lock(mutex_);
        if (isStopping_) {
            return false;
        }
        if (freePlaces_.empty()) {
            freePlaces_.reserve(places_.capacity() > places_.size() ? places_.capacity() : 2 * places_.size() + 1);
            timers_.reserve(places_.size() + 1);
            places_.emplace_back();
            freePlaces_.push_back(static_cast<std::uint32_t>(places_.size() - 1));
        }
        const std::uint32_t number = freePlaces_.back();
        Place& place = places_[number];
        added.watched_ = {added.getSocket(), std::uint64_t{place.generation} << 32 | number};
        readiness_->watch(added.watched_);
        freePlaces_.pop_back();
        place.task = std::move(task);
        added.pool_ = self;
        added.state_.note(Wished);
        added.state_.enter();
        ready_.append(added);
        toWake = whomToWake();
    }
    if (toWake) {
        toWake->wake();
    }
    return true;
}

bool TaskPoolState::remove(PoolTask& task) noexcept {
    std::shared_ptr<PoolTask> kept;
    const qlMutexLocker lock(mutex_);
    if (!isHere(task) || !task.state_.claim()) {
        return false;
    }
    readiness_->forget(task.watched_);
    kept = giveUp(task);
    return true;
}

void TaskPoolState::stop() noexcept {
    std::shared_ptr<Readiness> toWake;
    {
        const qlMutexLocker lock(mutex_);
        isStopping_ = true;
        toWake = readiness_;
    }
    if (toWake) {
        toWake->wake();
    }
}

void TaskPoolState::enqueue(PoolTask& task) noexcept {
    std::shared_ptr<Readiness> toWake;
    {
        const qlMutexLocker lock(mutex_);
        if (!isHere(task)) {
            return;
        }
        ready_.append(task);
        toWake = whomToWake();
    }
    if (toWake) {
        toWake->wake();
    }
}

void TaskPoolState::forget(PoolTask& task) noexcept {
    if (task.watched_.socket != InvalidSocket) {
        readiness_->forget(task.watched_);
        task.watched_.socket = InvalidSocket;
    }
}

void TaskPoolState::announceThread() {
    const qlMutexLocker lock(mutex_);
    ++threads_;
}

void TaskPoolState::threadEnds() noexcept {
    std::shared_ptr<Readiness> readiness;
    {
        const qlMutexLocker lock(mutex_);
        readiness = readiness_;
        if (--threads_ > 0) {
            // Each passes it on to the next that waits.
            readiness->wake();
            return;
        }
    }
    abandonAll();
}

void TaskPoolState::run(std::span<unsigned char> buffer) noexcept {
    std::array<Readiness::News, NewsPerLook> news;
    unsigned turnsUntilLook = TurnsPerLook;
    qlMutexLocker lock(mutex_);
    while (!isStopping_) {
        PoolTask* const task = turnsUntilLook > 0 ? takeReady() : nullptr;
        if (task == nullptr) {
            look(news);
            turnsUntilLook = TurnsPerLook;
            continue;
        }
        --turnsUntilLook;
        const unsigned taskNews = task->state_.begin();
        const std::shared_ptr<Readiness> toWake = whomToWake();
        lock.unlock();
        if (toWake) {
            toWake->wake();
        }
        const bool again = serve(*task, taskNews, buffer);
        lock.lock();
        if (again) {
            task->state_.endAgain();
            ready_.append(*task);
        }
    }
}

PoolTask* TaskPoolState::find(std::uint64_t id) const {
    const auto number = static_cast<std::uint32_t>(id);
    if (number >= places_.size() || places_[number].generation != id >> 32) {
        return nullptr;
    }
    return places_[number].task.get();
}

bool TaskPoolState::isHere(const PoolTask& task) const {
    return find(task.watched_.id) == &task;
}

PoolTask* TaskPoolState::takeReady() {
    return static_cast<PoolTask*>(ready_.take());
}

std::shared_ptr<PoolTask> TaskPoolState::giveUp(PoolTask& task) noexcept {
    ReadyList::remove(task);
    timers_.clear(task.timer_);
    const auto number = static_cast<std::uint32_t>(task.watched_.id);
    freePlaces_.push_back(number);
    ++places_[number].generation;
    return std::move(places_[number].task);
}

void TaskPoolState::look(std::span<Readiness::News> news) {
    const bool blocking = ready_.isEmpty();
    waiting_ += blocking ? 1 : 0;
    mutex_.unlock();
    const Readiness::WaitResult result = readiness_->wait(news, blocking);
    mutex_.lock();
    waiting_ -= blocking ? 1 : 0;
    if (result.woken) {
        isWaking_ = false;
    }
    for (const Readiness::News& one : news.first(result.count)) {
        if (PoolTask* const task = find(one.id)) {
            note(*task, (one.input ? InputCame : 0U) | (one.room ? RoomCame : 0U) | (one.ended ? InputEnded : 0U));
        }
    }
    if (result.alarm) {
        expireTimers();
    }
}

void TaskPoolState::note(PoolTask& task, unsigned news) {
    if (task.state_.note(news)) {
        ready_.append(task);
    }
}

bool TaskPoolState::serve(PoolTask& task, unsigned news, std::span<unsigned char> buffer) noexcept {
    if ((news & TimerExpired) != 0) {
        if (task.dueMs_ > qlSystemUtils::GetTimeBaseMs()) {
            news &= ~TimerExpired; // the task has moved it meanwhile
        } else {
            task.dueMs_ = TurnResult::Never;
        }
    }
    if (news != 0) {
        task.hasInputEnded_ |= (news & InputEnded) != 0;
        const TurnResult result = task.serve(Turn(news | (task.hasInputEnded_ ? InputEnded : 0U), buffer));
        switch (result.next) {
        case TurnResult::Next::Wait:
            readiness_->rearm(task.watched_, result.wantsToRead, result.wantsToWrite);
            break;
        case TurnResult::Next::Again:
            task.state_.note(Wished);
            break;
        case TurnResult::Next::Leave:
            leave(task);
            return false;
        }
        task.dueMs_ = result.dueMs;
    }
    if (task.dueMs_ < task.timerDueMs_.load(std::memory_order_relaxed)) {
        const qlMutexLocker lock(mutex_);
        setTimer(task);
    }
    return !task.state_.end();
}

void TaskPoolState::leave(PoolTask& task) noexcept {
    forget(task);
    std::shared_ptr<PoolTask> kept;
    {
        const qlMutexLocker lock(mutex_);
        kept = giveUp(task);
    }
    kept->left();
}

void TaskPoolState::setTimer(PoolTask& task) noexcept {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    task.timerDueMs_.store(task.dueMs_, std::memory_order_relaxed);
    timers_.set(task.timer_, inCompany(task.dueMs_, nowMs));
    updateAlarm(nowMs);
}

void TaskPoolState::expireTimers() {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    alarmMs_ = Readiness::NoAlarm;
    for (TimerHeap::Timer* first = timers_.first(); first != nullptr && first->timeMs <= nowMs;
         first = timers_.first()) {
        PoolTask& task = *first->task;
        timers_.clear(*first);
        task.timerDueMs_.store(TurnResult::Never, std::memory_order_relaxed);
        note(task, TimerExpired);
    }
    updateAlarm(nowMs);
}

void TaskPoolState::updateAlarm(std::int64_t nowMs) {
    const TimerHeap::Timer* const first = timers_.first();
    // One that is too early costs a wait that ends for nothing; so it stays until then.
    if (first != nullptr && first->timeMs < alarmMs_) {
        alarmMs_ = first->timeMs;
        readiness_->setAlarm(std::max<std::int64_t>(alarmMs_ - nowMs, 0));
    }
}

std::shared_ptr<Readiness> TaskPoolState::whomToWake() {
    if (waiting_ == 0 || isWaking_ || ready_.isEmpty()) {
        return nullptr;
    }
    isWaking_ = true;
    return readiness_;
}

void TaskPoolState::abandonAll() noexcept {
    std::vector<Place> left;
    std::shared_ptr<Readiness> readiness;
    {
        const qlMutexLocker lock(mutex_);
        left.swap(places_);
        readiness.swap(readiness_);
        for (const Place& place : left) {
            if (place.task) {
                place.task->state_.claim();
                ReadyList::remove(*place.task);
                timers_.clear(place.task->timer_);
            }
        }
    }
    for (Place& place : left) {
        if (const std::shared_ptr<PoolTask> task = std::move(place.task)) {
            readiness->forget(task->watched_);
            task->abandon();
        }
    }
}

} // namespace ql::impl
