#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstdint>
#include <map>
#include <string>

namespace demo {

/// What the demo has done since its start. Any thread.
class Statistics {
public:
    struct Counters {
        std::uint64_t requestsServed = 0; ///< exchanges that were completed
        std::uint64_t requestsActive = 0; ///< exchanges that have begun and not ended
        std::uint64_t bytesIn = 0;        ///< of ended exchanges: headers (an estimate) and body bytes read
        std::uint64_t bytesOut = 0;       ///< of ended exchanges: headers (an estimate) and body bytes written
        std::uint64_t webSocketsOpen = 0;
        std::uint64_t webSocketsAccepted = 0;
        std::uint64_t messagesIn = 0;
        std::uint64_t messagesOut = 0;
        std::map<std::string, std::uint64_t> abnormalEnds; ///< exchanges that were cut short, by reason
    };

    Counters snapshot() const QL_EXCLUDES(mutex_);

    void requestBegan() QL_EXCLUDES(mutex_);
    /// @param loss the error of the response device; empty when the exchange was completed.
    void requestEnded(std::uint64_t bytesIn, std::uint64_t bytesOut, const std::string& loss) QL_EXCLUDES(mutex_);
    void webSocketOpened() QL_EXCLUDES(mutex_);
    void webSocketClosed() QL_EXCLUDES(mutex_);
    void messageReceived() QL_EXCLUDES(mutex_);
    void messagesSent(std::uint64_t count) QL_EXCLUDES(mutex_);

private:
    mutable qlMutex mutex_;
    Counters counters_ QL_GUARDED_BY(mutex_);
};

} // namespace demo
