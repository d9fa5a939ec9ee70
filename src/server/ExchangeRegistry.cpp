#include "server/ExchangeRegistry.h"

#include "server/Exchange.h"

#include <utility>

namespace ql::impl {

ExchangeRegistry::~ExchangeRegistry() = default;

std::shared_ptr<Exchange> ExchangeRegistry::begin(EngineConnection connection, std::uint64_t bodyBytes,
                                                  DeadlineMarks& marks) {
    auto exchange = std::make_shared<Exchange>(connection, connection.socket(), bodyBytes, marks);
    const qlMutexLocker locker(mutex_);
    if (isClosed_) {
        exchange->finish();
    } else {
        exchanges_.insert(exchange);
    }
    return exchange;
}

void ExchangeRegistry::end(const std::shared_ptr<Exchange>& exchange) noexcept {
    exchange->finish();
    const qlMutexLocker locker(mutex_);
    ended_ += exchanges_.erase(exchange);
}

ExchangeRegistry::Counts ExchangeRegistry::counts() {
    const qlMutexLocker locker(mutex_);
    return {exchanges_.size(), ended_};
}

void ExchangeRegistry::finishAll() noexcept {
    std::unordered_set<std::shared_ptr<Exchange>> exchanges;
    {
        const qlMutexLocker locker(mutex_);
        isClosed_ = true;
        exchanges.swap(exchanges_);
    }
    for (const std::shared_ptr<Exchange>& exchange : exchanges) {
        exchange->finish();
    }
}

} // namespace ql::impl
