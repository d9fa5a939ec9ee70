// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "websocket/pool/PollSet.h"
#include "websocket/pool/PoolState.h"

#include <cstddef>

namespace ql::impl {

/// What the poll thread does: watches the connections of the poll set, closes those that break and makes those ready
/// that have something to do. What the system offers for that is the PollSet's affair.
class PollLoop {
public:
    explicit PollLoop(PoolState& pool);

    /// Returns when the pool is stopped; its connections are back in the poll set then. If the system cannot poll, logs
    /// that and returns: those that were polled are destroyed with this object, unclosed.
    void run() QL_EXCLUDES(pool_.mutex);

private:
    /// Adds what is new in the poll set to the batch. @return false when there is no memory for the cycle.
    bool takeOver() QL_REQUIRES(pool_.mutex);
    /// Watches the rest of the batch as well from now on, from `known` on, and for writing what has something to send.
    void watch(std::size_t known);
    /// Closes and destroys the connections that are broken, from `first` on. @return whether there was one.
    bool closeBroken(std::size_t first);
    /// Moves those of the batch that have something to do to the ready queue, from `first` on.
    /// @return whether there was one.
    bool moveToReady(std::size_t first) QL_REQUIRES(pool_.mutex);
    /// Removes the entries of connections that are no longer here, from `first` on; the others keep their order.
    void closeGaps(std::size_t first);

    PoolState& pool_;
    /// The connections that are watched, this thread's alone until they are ready. Each has its number in polled_.
    PoolState::Connections batch_;
    PollSet polled_;
};

} // namespace ql::impl
