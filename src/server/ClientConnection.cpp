#include "server/ClientConnection.h"

#include "server/Exchange.h"

#include <utility>

namespace ql::impl {

void ClientConnection::beginExchange(HttpBaseRequest& request, std::shared_ptr<Exchange> exchange) {
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
}

void ClientConnection::endExchange() noexcept {
    const qlMutexLocker locker(gate_);
    request_ = nullptr;
    exchange_.reset();
    marks_.enter(Stage::NextHead);
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
