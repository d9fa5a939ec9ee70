#include "vireo/WebSocketWorkerThread.h"

#include "frame/ExceptionLog.h"
#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"
#include "websocket/BlockList.h"
#include "websocket/pool/PoolMember.h"
#include "websocket/pool/PoolState.h"

#include <memory>

namespace ql::http {

WebSocketWorkerThread::WebSocketWorkerThread(WebSocketThread* owner) : owner_(owner) {
    startThread(nullptr);
}

WebSocketWorkerThread::~WebSocketWorkerThread() {
    waitThread(NoTimeLimit);
}

void WebSocketWorkerThread::run() {
    const impl::SpareBlocks spareBlocks;
    impl::PoolState& pool = impl::PoolState::of(*owner_);
    std::unique_ptr<WebSocket> current = pool.takeForWorker();
    while (current) {
        try {
            if (impl::memberOf(current).serve() && pool.exchangeForWorker(current)) {
                continue;
            }
        } catch (...) {
            impl::logCurrentException("a WebSocket");
        }
        impl::memberOf(current).close();
        current.reset();
        current = pool.takeForWorker();
    }
}

} // namespace ql::http
