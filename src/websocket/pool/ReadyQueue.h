// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <list>
#include <memory>

namespace ql::http {
class WebSocket;
} // namespace ql::http

namespace ql::impl {

/// The connections that wait for a worker, first in first out. It stands on a list that is the pool's, and keeps the
/// nodes of those taken, so that a connection's turn costs no allocation. Never more than the longest queue there was.
class ReadyQueue {
public:
    using Connection = std::unique_ptr<http::WebSocket>;

    /// `queue` must live as long as this object.
    explicit ReadyQueue(std::list<Connection>& queue);
    ~ReadyQueue();
    ReadyQueue(const ReadyQueue&) = delete;
    ReadyQueue& operator=(const ReadyQueue&) = delete;

    bool isEmpty() const { return queue_.empty(); }
    std::size_t size() const { return queue_.size(); }

    /// @param connection left empty. @throws std::bad_alloc; it stays where it is then.
    void append(Connection& connection);
    /// @return the front, or empty when there is none.
    Connection take();
    /// Empties the queue.
    std::list<Connection> takeAll();

private:
    std::list<Connection>& queue_;
    std::list<Connection> spareNodes_;
};

} // namespace ql::impl
