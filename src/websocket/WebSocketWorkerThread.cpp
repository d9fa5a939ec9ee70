#include "vireo/WebSocketWorkerThread.h"

#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"
#include "vireo/support/qlLog.h"
#include "websocket/BlockList.h"

#include <exception>
#include <memory>

namespace ql::http {

namespace {

/// Never throws: the connection still has to be closed afterwards.
void logLostConnection(const char* reason) noexcept {
    try {
        qlLogObject(qlLogType::Failure) << "WebSocket closed after an exception: " << reason;
    } catch (...) {
        // Without the memory for a line there is no line.
    }
}

} // namespace

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
        } catch (const std::exception& exception) {
            logLostConnection(exception.what());
        } catch (...) {
            logLostConnection("of an unknown type");
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
