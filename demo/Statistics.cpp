#include "Statistics.h"

namespace demo {

namespace {

/// "lost connection : ClientAbort" -> "ClientAbort"
std::string reasonOf(const std::string& loss) {
    const std::string prefix = "lost connection : ";
    return loss.starts_with(prefix) ? loss.substr(prefix.size()) : loss;
}

} // namespace

Statistics::Counters Statistics::snapshot() const {
    const qlMutexLocker lock(mutex_);
    return counters_;
}

void Statistics::requestBegan() {
    const qlMutexLocker lock(mutex_);
    ++counters_.requestsActive;
}

void Statistics::requestEnded(std::uint64_t bytesIn, std::uint64_t bytesOut, const std::string& loss) {
    const qlMutexLocker lock(mutex_);
    --counters_.requestsActive;
    counters_.bytesIn += bytesIn;
    counters_.bytesOut += bytesOut;
    if (loss.empty()) {
        ++counters_.requestsServed;
    } else {
        ++counters_.abnormalEnds[reasonOf(loss)];
    }
}

void Statistics::webSocketOpened() {
    const qlMutexLocker lock(mutex_);
    ++counters_.webSocketsOpen;
    ++counters_.webSocketsAccepted;
}

void Statistics::webSocketClosed() {
    const qlMutexLocker lock(mutex_);
    --counters_.webSocketsOpen;
}

void Statistics::messageReceived() {
    const qlMutexLocker lock(mutex_);
    ++counters_.messagesIn;
}

void Statistics::messagesSent(std::uint64_t count) {
    const qlMutexLocker lock(mutex_);
    counters_.messagesOut += count;
}

} // namespace demo
