#include "server/ClientConnection.h"

#include "server/Exchange.h"

#include <utility>

namespace ql::impl {

namespace {

/// Of what one thread alone changes.
void countUp(std::atomic<std::uint64_t>& count) {
    count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

} // namespace

void ClientConnection::beginExchange(HttpBaseRequest& request, std::shared_ptr<Exchange> exchange) {
    countUp(begunExchanges_);
    const qlMutexLocker locker(gate_);
    hasServed_ = true;
    request_ = &request;
    exchange_ = std::move(exchange);
    if (takeHeadLate()) {
        exchange_->cut(CutReason::HeadTimeout);
    }
    if (isUnwatched_) {
        exchange_->cut(CutReason::ClientLeft);
    }
    if (isFinishing_) {
        exchange_->finish();
    }
}

void ClientConnection::endExchange() noexcept {
    std::shared_ptr<Exchange> ended;
    {
        const qlMutexLocker locker(gate_);
        request_ = nullptr;
        ended = std::move(exchange_);
        marks_.enter(Stage::NextHead);
    }
    if (ended) {
        ended->finish();
        countUp(endedExchanges_);
    }
}

void ClientConnection::finishExchanges() noexcept {
    std::shared_ptr<Exchange> living;
    {
        const qlMutexLocker locker(gate_);
        isFinishing_ = true;
        living = exchange_;
    }
    if (living) {
        living->finish();
    }
}

void ClientConnection::close() noexcept {
    handOver({});
}

void ClientConnection::handOver(OwnSocket&& endOfWebSocket) noexcept {
    const qlMutexLocker locker(gate_);
    isOpen_ = false;
    endOfWebSocket_ = std::move(endOfWebSocket);
    marks_.enter(Stage::Application);
}

} // namespace ql::impl
