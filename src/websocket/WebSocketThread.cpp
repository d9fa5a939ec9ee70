#include "vireo/WebSocketThread.h"

#include "vireo/WebSocket.h"
#include "vireo/WebSocketWorkerThread.h"
#include "websocket/pool/PollLoop.h"
#include "websocket/pool/PoolState.h"

namespace ql::http {

WebSocketThread::WebSocketThread() : state_(std::make_unique<impl::PoolState>(*this)) {}

WebSocketThread::~WebSocketThread() {
    stopThreads(true);
    qlMutexLocker lock(mutex_);
    workers_.clear();
}

void WebSocketThread::startThreads(unsigned int count) {
    try {
        {
            qlMutexLocker lock(mutex_);
            if (!workers_.empty()) {
                return;
            }
            workers_.reserve(count);
            for (unsigned int i = 0; i < count; ++i) {
                workers_.push_back(std::make_unique<WebSocketWorkerThread>(this));
            }
        }
        startThread(nullptr);
    } catch (...) {
        // Half a pool would take connections and leave them lying.
        stopThreads(true);
        throw;
    }
}

void WebSocketThread::stopThreads(bool wait) {
    state_->stop();
    if (!wait) {
        return;
    }
    for (std::size_t i = 0;; ++i) {
        WebSocketWorkerThread* worker = nullptr;
        {
            qlMutexLocker lock(mutex_);
            if (i >= workers_.size()) {
                break;
            }
            worker = workers_[i].get();
        }
        worker->waitThread(NoTimeLimit);
    }
    waitThread(NoTimeLimit);
}

void WebSocketThread::closeAll() {
    state_->closeAll();
}

void WebSocketThread::addWebSocket(std::unique_ptr<WebSocket>& socket) {
    state_->addWebSocket(socket);
}

void WebSocketThread::getFirstWebSocket(std::unique_ptr<WebSocket>& socket) {
    state_->getFirstWebSocket(socket);
}

void WebSocketThread::giveBackWebSocket(std::unique_ptr<WebSocket>& socket) {
    state_->giveBackWebSocket(socket);
}

void WebSocketThread::run() {
    impl::PollLoop(*state_).run();
}

} // namespace ql::http
