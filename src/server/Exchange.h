// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/Suspension.h"
#include "server/CutReason.h"
#include "server/DeadlineMarks.h"
#include "streams/ResponseWait.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

namespace ql::impl {

/// One request and its answer on a daemon that can put connections aside: waits by suspending its connection, and is
/// resumed by news. Held by the request, whose threads bring the news, by its context and by its connection.
///
/// Whoever calls news() under a device's lock is in the engine's mutex meanwhile. The engine never calls the library
/// with that held, but for the completion of upgraded connections, which have no exchange.
class Exchange final : public ResponseWait {
public:
    using Suspension = impl::Suspension<EngineConnection>;

    /// How far the request has come.
    enum class Phase {
        Head,     ///< its body is neither accepted nor refused
        Body,     ///< its body is received
        Ended,    ///< all of it is there
        Answered, ///< its answer is being sent; before the body, or after all of it
    };

    /// A length of a body that only its end tells.
    static constexpr std::uint64_t UnknownLength = std::numeric_limits<std::uint64_t>::max();

    /// @param socket the connection's.
    /// @param bodyBytes the body's length as the head announces it.
    /// @param marks the connection's, which are there as long as its daemon thread calls.
    Exchange(EngineConnection connection, std::uint64_t socket, std::uint64_t bodyBytes, DeadlineMarks& marks);

    // The daemon thread's.

    void setPhase(Phase phase);
    bool hasWholeBody() const { return hasWholeBody_; }
    /// How much of the body is to come.
    std::uint64_t bodyLeft() const { return bodyLeft_; }
    void countBody(std::size_t size);
    std::uint64_t receivedBytes() const { return receivedBytes_; }
    /// Of the answer's body, where it is streamed.
    std::uint64_t sentBytes() const { return sentBytes_; }
    std::uint64_t socket() const { return socket_; }

    Suspension::Outcome suspend();

    void progress() override;
    void gave(std::uint64_t bytes) override { sentBytes_ += bytes; }
    /// Suspends, but for the first time and when there is news: then the engine calls again at once. The second time it
    /// looks a few times for an answer where the thread has nobody else to serve.
    void wait(HttpBaseRequest& request, std::int64_t nowMs) override;
    /// What passes between two of these looks. A test puts something of its own here.
    static std::atomic<void (*)()> pauseOfLooks;
    /// Has the engine watch the connection again, which it does not since it was last suspended: it would wait for an
    /// event before it closes the connection.
    void ending() noexcept override { suspension_.touch(); }

    // Any thread.

    Phase phase() const { return phase_.load(std::memory_order_acquire); }

    /// Notes why the exchange is ended before its time, unless that is noted already. See cutExchange().
    /// @return whether this is the reason now.
    bool cut(CutReason reason) {
        CutReason before = CutReason::None;
        return cutReason_.compare_exchange_strong(before, reason);
    }
    /// For the watch alone.
    /// @return whether this is the first time that its client was found to have left.
    bool noteLeaving() { return !std::exchange(isLeavingNoted_, true); }
    bool isSuspended() const { return suspension_.isSuspended(); }
    CutReason cutReason() const { return cutReason_; }
    bool isCut() const { return cutReason() != CutReason::None; }

    void news() noexcept override { suspension_.resume(); }
    /// The connection is not suspended any more, and nobody is on the way to the engine with it. Not under a lock of a
    /// device, which who is on the way may hold.
    void finish() noexcept { suspension_.finish(); }

private:
    Suspension suspension_;
    const std::uint64_t socket_;
    DeadlineMarks& marks_;
    std::atomic<Phase> phase_{Phase::Head};
    std::atomic<CutReason> cutReason_{CutReason::None};
    std::uint64_t bodyLeft_;
    std::uint64_t receivedBytes_ = 0;
    std::uint64_t sentBytes_ = 0;
    bool hasWholeBody_ = false;
    bool hasWaited_ = false;
    bool isLeavingNoted_ = false;
};

} // namespace ql::impl
