// SPDX-License-Identifier: MIT
#pragma once

#include "session/pool/Readiness.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"
#include "websocket/SocketPort.h"
#include "websocket/pool/PollSet.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ql::impl {

/// Readiness by poll calls, for systems that have nothing better. One of the threads that wait polls, the others wait
/// for its place. A socket of which there were news leaves the poll set until it is rearmed.
class PollReadiness final : public Readiness {
public:
    /// @throws std::system_error when the system has no descriptors to give, std::bad_alloc.
    PollReadiness();
    ~PollReadiness() override;

    void watch(WatchedSocket& watched) override QL_EXCLUDES(mutex_);
    void rearm(WatchedSocket& watched, bool forReading, bool forWriting) noexcept override QL_EXCLUDES(mutex_);
    void forget(const WatchedSocket& watched) noexcept override QL_EXCLUDES(mutex_);
    WaitResult wait(std::span<News> news, bool blocking) override QL_EXCLUDES(mutex_);
    void wake() noexcept override QL_EXCLUDES(mutex_);
    void setAlarm(std::int64_t inMs) noexcept override QL_EXCLUDES(mutex_);

private:
    using Clock = std::chrono::steady_clock;

    static constexpr auto NotPolled = ~std::size_t{0};

    /// What is wanted of a socket, by the lower half of its id.
    struct Wish {
        WatchedSocket watched;
        bool isWatched = false;
        bool isChanged = false; ///< stands in changed_
        std::size_t index = NotPolled;
    };
    /// Whose socket stands in the poll set, by its index there.
    struct Polled {
        std::uint64_t id;
        std::uint32_t number; ///< of the wish that knows the index
    };

    void noteChange(std::uint32_t number) noexcept QL_REQUIRES(mutex_);
    /// Ends a poll that is under way.
    void interrupt() noexcept QL_REQUIRES(mutex_);
    /// One poll call, during which the mutex is free. @return how many news there were.
    std::size_t poll(std::span<News> news, bool blocking) QL_REQUIRES(mutex_);
    std::size_t collect(std::span<News> news) QL_REQUIRES(mutex_);
    /// Makes the poll set what is wished for. @return false when there is no memory for it.
    bool applyChanges() QL_REQUIRES(mutex_);
    void takeOut(std::size_t index) QL_REQUIRES(mutex_);
    /// How long a poll may take, by the alarm and at most so long; negative for any time.
    int timeoutWithin(int mostMs) const QL_REQUIRES(mutex_);
    bool takeAlarm() QL_REQUIRES(mutex_);

    qlMutex mutex_;
    qlWaitCondition placeIsFree_;
    std::vector<Wish> wishes_ QL_GUARDED_BY(mutex_);
    /// Numbers of wishes that the poll set doesn't follow yet. Has room for all.
    std::vector<std::uint32_t> changed_ QL_GUARDED_BY(mutex_);
    Clock::time_point alarm_ QL_GUARDED_BY(mutex_) = Clock::time_point::max();
    unsigned inLine_ QL_GUARDED_BY(mutex_) = 0;
    bool isPolling_ QL_GUARDED_BY(mutex_) = false;
    bool isInterrupted_ QL_GUARDED_BY(mutex_) = false;
    bool isWoken_ QL_GUARDED_BY(mutex_) = false;
    WakeSignal signal_;

    // Of the thread that polls; while none does, guarded by the mutex.

    PollSet set_{signal_};
    std::vector<Polled> polled_;
};

} // namespace ql::impl
