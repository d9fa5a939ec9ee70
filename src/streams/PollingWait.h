// SPDX-License-Identifier: MIT
#pragma once

#include "streams/ResponseWait.h"
#include "vireo/support/qlTimer.h"

#include <cstdint>

namespace ql::impl {

/// Lets the engine poll, and slows its daemon thread down: free for the first 100 ms, then about one poll every 45 ms,
/// with at least 10 ms of sleep each.
///
/// There is one per thread, for all connections that the thread serves: any of them that gets on makes polling free.
class PollingWait final : public ResponseWait {
public:
    /// The calling thread's.
    static PollingWait& ofThisThread();

    /// Polling is free again.
    void progress() override;

    /// Sleeps when there has been nothing to do for long enough. Until then, once a round of all requests has brought
    /// nothing, it gives the core to a thread that waits for one, most likely the one that makes what is polled for.
    /// @param request only compared.
    void wait(HttpBaseRequest& request, std::int64_t nowMs) override;

    /// What wait() sleeps this time, in milliseconds; 0 while polling is free. The next period begins.
    std::int64_t takeDueSleepMs(std::int64_t nowMs);

    /// Whether nothing has got on since the last call for this request, so that a round is complete. The next one
    /// begins.
    bool endsFruitlessRound(const HttpBaseRequest& request);

private:
    qlTimer starvation_{false};
    qlTimer pacing_{false};
    /// With whom the round began; null between rounds.
    const HttpBaseRequest* roundStart_ = nullptr;
};

} // namespace ql::impl
