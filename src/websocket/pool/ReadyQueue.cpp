#include "websocket/pool/ReadyQueue.h"

#include "vireo/WebSocket.h"

#include <utility>

namespace ql::impl {

ReadyQueue::ReadyQueue(std::list<Connection>& queue) : queue_(queue) {}

ReadyQueue::~ReadyQueue() = default;

void ReadyQueue::append(Connection& connection) {
    if (spareNodes_.empty()) {
        queue_.push_back(std::move(connection));
        return;
    }
    queue_.splice(queue_.end(), spareNodes_, spareNodes_.begin());
    queue_.back() = std::move(connection);
}

ReadyQueue::Connection ReadyQueue::take() {
    if (queue_.empty()) {
        return nullptr;
    }
    Connection front = std::move(queue_.front());
    spareNodes_.splice(spareNodes_.begin(), queue_, queue_.begin());
    return front;
}

std::list<ReadyQueue::Connection> ReadyQueue::takeAll() {
    return std::exchange(queue_, {});
}

} // namespace ql::impl
