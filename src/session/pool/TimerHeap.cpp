#include "session/pool/TimerHeap.h"

#include <algorithm>

namespace ql::impl {

void TimerHeap::reserve(std::size_t count) {
    if (heap_.capacity() < count) {
        heap_.reserve(std::max(count, 2 * heap_.capacity()));
    }
}

void TimerHeap::set(Timer& timer, std::int64_t timeMs) noexcept {
    if (timer.index == NotSet) {
        timer.index = heap_.size();
        heap_.push_back(&timer);
    }
    timer.timeMs = timeMs;
    settle(timer, timer.index);
}

void TimerHeap::clear(Timer& timer) noexcept {
    if (timer.index == NotSet) {
        return;
    }
    Timer& last = *heap_.back();
    heap_.pop_back();
    if (&last != &timer) {
        settle(last, timer.index);
    }
    timer.index = NotSet;
}

void TimerHeap::settle(Timer& timer, std::size_t vacant) noexcept {
    while (vacant > 0) {
        const std::size_t parent = (vacant - 1) / 2;
        if (heap_[parent]->timeMs <= timer.timeMs) {
            break;
        }
        put(*heap_[parent], vacant);
        vacant = parent;
    }
    for (;;) {
        std::size_t child = 2 * vacant + 1;
        if (child + 1 < heap_.size() && heap_[child + 1]->timeMs < heap_[child]->timeMs) {
            ++child;
        }
        if (child >= heap_.size() || timer.timeMs <= heap_[child]->timeMs) {
            break;
        }
        put(*heap_[child], vacant);
        vacant = child;
    }
    put(timer, vacant);
}

void TimerHeap::put(Timer& timer, std::size_t index) noexcept {
    heap_[index] = &timer;
    timer.index = index;
}

} // namespace ql::impl
