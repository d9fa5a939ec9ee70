// Puts the scheduler between the threads of a run and the system: what the library calls of the system's threads,
// locks, conditions, clocks and waits for sockets is a step here. Threads that are in no run get the system's own.

#include "support/Interleavings.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace {

using vireotest::Interleavings;

constexpr std::int64_t NsPerSec = 1000000000;
constexpr std::int64_t NsPerMs = 1000000;

/// The system's function of that name.
template <typename Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Whoever waits for a condition.
struct Waiter {
    bool isWoken = false;
};

// One thread works at a time, so nothing guards these.

std::unordered_map<const pthread_mutex_t*, std::size_t>& owners() {
    static auto& map = *new std::unordered_map<const pthread_mutex_t*, std::size_t>;
    return map;
}

std::unordered_map<const pthread_cond_t*, std::deque<Waiter*>>& waiters() {
    static auto& map = *new std::unordered_map<const pthread_cond_t*, std::deque<Waiter*>>;
    return map;
}

std::unordered_map<pthread_t, std::size_t>& numbers() {
    static auto& map = *new std::unordered_map<pthread_t, std::size_t>;
    return map;
}

bool isFree(const pthread_mutex_t* mutex) {
    return !owners().contains(mutex);
}

void own(const pthread_mutex_t* mutex) {
    owners()[mutex] = Interleavings::currentNumber();
}

void disown(const pthread_mutex_t* mutex) {
    const auto owner = owners().find(mutex);
    if (owner == owners().end() || owner->second != Interleavings::currentNumber()) {
        Interleavings::fail("a thread unlocks what it has not locked");
        return;
    }
    owners().erase(owner);
}

std::int64_t inNs(const timespec& time) {
    return time.tv_sec * NsPerSec + time.tv_nsec;
}

/// What a clock of a run shows at its begin: none of them may show 0, which is "never" in many places.
constexpr std::int64_t BeginNs = 1000 * NsPerSec;

std::int64_t deadlineOf(const timespec& time) {
    return inNs(time) - BeginNs;
}

std::int64_t deadlineIn(int timeoutMs) {
    return timeoutMs < 0 ? Interleavings::NoDeadline : Interleavings::nowNs() + timeoutMs * NsPerMs;
}

int awaitCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, std::int64_t deadlineNs) {
    Waiter self;
    waiters()[condition].push_back(&self);
    disown(mutex);
    const bool isWoken =
        Interleavings::waitUntil([&] { return self.isWoken && isFree(mutex); }, deadlineNs) || self.isWoken;
    if (!isWoken) {
        std::erase(waiters()[condition], &self);
    }
    if (!isFree(mutex)) {
        Interleavings::waitUntil([&] { return isFree(mutex); });
    }
    own(mutex);
    return isWoken ? 0 : ETIMEDOUT;
}

void wakeFirst(pthread_cond_t* condition) {
    auto& queue = waiters()[condition];
    if (!queue.empty()) {
        queue.front()->isWoken = true;
        queue.pop_front();
    }
}

struct Start {
    void* (*function)(void*);
    void* argument;
    std::size_t number;
};

void* live(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    Interleavings::begin(start->number);
    void* const result = start->function(start->argument);
    Interleavings::end();
    return result;
}

int sleepUntil(std::int64_t deadlineNs) {
    Interleavings::waitUntil([] { return false; }, deadlineNs);
    return 0;
}

} // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static auto* const system = systems<int(pthread_mutex_t*)>("pthread_mutex_lock");
    if (!Interleavings::isScheduled()) {
        return system(mutex);
    }
    Interleavings::waitUntil([mutex] { return isFree(mutex); });
    own(mutex);
    return 0;
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    static auto* const system = systems<int(pthread_mutex_t*)>("pthread_mutex_trylock");
    if (!Interleavings::isScheduled()) {
        return system(mutex);
    }
    Interleavings::point();
    if (!isFree(mutex)) {
        return EBUSY;
    }
    own(mutex);
    return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static auto* const system = systems<int(pthread_mutex_t*)>("pthread_mutex_unlock");
    if (!Interleavings::isScheduled()) {
        return system(mutex);
    }
    // No step: what other threads can see of it begins with their own next one.
    disown(mutex);
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    static auto* const system = systems<int(pthread_cond_t*, pthread_mutex_t*)>("pthread_cond_wait");
    return Interleavings::isScheduled() ? awaitCondition(condition, mutex, Interleavings::NoDeadline)
                                        : system(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until) {
    static auto* const system =
        systems<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)>("pthread_cond_timedwait");
    return Interleavings::isScheduled() ? awaitCondition(condition, mutex, deadlineOf(*until))
                                        : system(condition, mutex, until);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec* until) {
    static auto* const system =
        systems<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>("pthread_cond_clockwait");
    return Interleavings::isScheduled() ? awaitCondition(condition, mutex, deadlineOf(*until))
                                        : system(condition, mutex, clock, until);
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    static auto* const system = systems<int(pthread_cond_t*)>("pthread_cond_signal");
    if (!Interleavings::isScheduled()) {
        return system(condition);
    }
    Interleavings::point();
    wakeFirst(condition);
    return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    static auto* const system = systems<int(pthread_cond_t*)>("pthread_cond_broadcast");
    if (!Interleavings::isScheduled()) {
        return system(condition);
    }
    Interleavings::point();
    while (!waiters()[condition].empty()) {
        wakeFirst(condition);
    }
    return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                   void* argument) noexcept {
    static auto* const system =
        systems<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    if (!Interleavings::isScheduled()) {
        return system(thread, attributes, function, argument);
    }
    auto start = std::make_unique<Start>(Start{function, argument, Interleavings::announce()});
    const std::size_t number = start->number;
    const int error = system(thread, attributes, live, start.get());
    if (error != 0) {
        Interleavings::fail("the system has no thread");
        return error;
    }
    static_cast<void>(start.release());
    numbers()[*thread] = number;
    Interleavings::point();
    return 0;
}

int pthread_join(pthread_t thread, void** result) {
    static auto* const system = systems<int(pthread_t, void**)>("pthread_join");
    if (Interleavings::isScheduled()) {
        const std::size_t number = numbers().at(thread);
        Interleavings::waitUntil([number] { return Interleavings::hasEnded(number); });
    }
    return system(thread, result);
}

int sched_yield() noexcept {
    static auto* const system = systems<int()>("sched_yield");
    if (!Interleavings::isScheduled()) {
        return system();
    }
    Interleavings::yield();
    return 0;
}

int nanosleep(const timespec* time, timespec* rest) {
    static auto* const system = systems<int(const timespec*, timespec*)>("nanosleep");
    return Interleavings::isScheduled() ? sleepUntil(Interleavings::nowNs() + inNs(*time)) : system(time, rest);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    static auto* const system = systems<int(clockid_t, int, const timespec*, timespec*)>("clock_nanosleep");
    if (!Interleavings::isScheduled()) {
        return system(clock, flags, time, rest);
    }
    return sleepUntil((flags & TIMER_ABSTIME) != 0 ? deadlineOf(*time) : Interleavings::nowNs() + inNs(*time));
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static auto* const system = systems<int(clockid_t, timespec*)>("clock_gettime");
    if (!Interleavings::isScheduled()) {
        return system(clock, time);
    }
    const std::int64_t nowNs = BeginNs + Interleavings::nowNs();
    *time = {static_cast<time_t>(nowNs / NsPerSec), static_cast<long>(nowNs % NsPerSec)};
    return 0;
}

int poll(pollfd* sockets, nfds_t count, int timeoutMs) {
    static auto* const system = systems<int(pollfd*, nfds_t, int)>("poll");
    if (!Interleavings::isScheduled() || timeoutMs == 0) {
        return system(sockets, count, timeoutMs);
    }
    int result = 0;
    Interleavings::waitUntil([&] { return (result = system(sockets, count, 0)) != 0; }, deadlineIn(timeoutMs));
    return result;
}

int epoll_wait(int set, epoll_event* events, int count, int timeoutMs) {
    static auto* const system = systems<int(int, epoll_event*, int, int)>("epoll_wait");
    if (!Interleavings::isScheduled()) {
        return system(set, events, count, timeoutMs);
    }
    // Looked at without taking any news, which are for the thread that has its turn.
    pollfd self{set, POLLIN, 0};
    static auto* const systemPoll = systems<int(pollfd*, nfds_t, int)>("poll");
    if (timeoutMs != 0) {
        Interleavings::waitUntil([&] { return systemPoll(&self, 1, 0) != 0; }, deadlineIn(timeoutMs));
    }
    return system(set, events, count, 0);
}

ssize_t recv(int socket, void* buffer, size_t size, int flags) {
    static auto* const system = systems<ssize_t(int, void*, size_t, int)>("recv");
    if (Interleavings::isScheduled() && (flags & MSG_DONTWAIT) == 0 && (fcntl(socket, F_GETFL) & O_NONBLOCK) == 0) {
        pollfd self{socket, POLLIN, 0};
        poll(&self, 1, -1);
    }
    return system(socket, buffer, size, flags);
}

} // extern "C"
