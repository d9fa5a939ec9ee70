#include "vireo/WebSocketWorkerThread.h"

#include "frame/ExceptionLog.h"
#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"
#include "websocket/BlockList.h"

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
    std::unique_ptr<WebSocket> current = owner_->takeForWorker();
    while (current) {
        try {
            if (serve(*current) && owner_->exchangeForWorker(current)) {
                continue;
            }
        } catch (...) {
            impl::logCurrentException("a WebSocket");
        }
        current->markForDeletion();
        current.reset();
        current = owner_->takeForWorker();
    }
}

bool WebSocketWorkerThread::serve(WebSocket& socket) {
    socket.assignCurrentThread();
    const bool sent = socket.sendDataIfAvailable();
    const bool read = socket.readDataIfAvailable();
    socket.clearCurrentThread();
    return sent && read;
}

} // namespace ql::http
