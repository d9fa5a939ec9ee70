#include "vireo/WebSocketPool.h"

#include "frame/InvalidArgument.h"
#include "session/pool/MemberTask.h"
#include "session/pool/TaskPool.h"
#include "vireo/WebSocket.h"
#include "websocket/pool/PoolMember.h"
#include "websocket/pool/PoolState.h"

namespace ql::http {

namespace {

unsigned int checkedThreads(unsigned int threads) {
    if (threads < 1 || threads > WebSocketPool::MaxThreads) {
        impl::throwInvalidArgument("threads of a WebSocketPool");
    }
    return threads;
}

} // namespace

WebSocketPool::WebSocketPool(unsigned int threads)
    : tasks_(std::make_unique<impl::TaskPool>(checkedThreads(threads))) {}

WebSocketPool::~WebSocketPool() = default;

void WebSocketPool::add(std::unique_ptr<WebSocket>& socket) {
    if (!socket) {
        return;
    }
    const std::shared_ptr<impl::MemberTask> task = impl::MemberTask::make(socket);
    bool isAdded = false;
    try {
        isAdded = tasks_->add(task);
    } catch (...) {
        socket = task->takeBack();
        throw;
    }
    if (!isAdded) {
        socket = task->takeBack();
        impl::memberOf(socket).close();
    }
}

void WebSocketPool::stop() {
    tasks_->stop();
}

} // namespace ql::http

namespace ql::impl {

TaskPool& TaskPool::of(http::WebSocketPool& pool) {
    return *pool.tasks_;
}

} // namespace ql::impl
