// SPDX-License-Identifier: MIT
#pragma once

#include "engine/LingeringSocket.h"
#include "engine/SocketWatch.h"
#include "server/LingeringCloses.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace ql::http {
class HttpServerImpl;
}

namespace ql::impl {

class ClientConnection;
class ConnectionTable;

/// The thread that notices which clients leave, of all connections of a server that waits by events: the engine does
/// not see it of one that is put aside, and it misses an end that arrives together with bytes.
///
/// - A reset ends the exchange at once, but for an answer that is being sent: the engine has time to get done with it.
/// - The end of a client's sending is shown to the engine, again and again until the connection is closed. A request
///   that is complete by then is marked and the application's scheduler told; at the next look it is ended, where the
///   options say so, while its connection is put aside.
///
/// A WebSocket over TLS is watched as well: it is shown that its peer has left.
///
/// It also sees the last of connections that were answered before their body was there.
class ConnectionWatch final : private qlThread {
public:
    explicit ConnectionWatch(ConnectionTable& connections) : connections_(connections) {}
    ~ConnectionWatch() override;

    /// @param application whose scheduler is told, on this thread and under no lock.
    /// @param endsOnClientClose whether the end of a client's sending ends its exchange.
    /// @param periodMs how often `eachPeriod` is called; 0 for never.
    /// @param eachPeriod is called on this thread, with what qlSystemUtils::GetTimeBaseMs() says, under no lock.
    /// @throws what a thread's start does, and std::system_error when the system has no descriptor to give.
    void start(http::HttpServerImpl& application, bool endsOnClientClose, std::int64_t periodMs,
               std::function<void(std::int64_t nowMs)> eachPeriod);
    /// Before the engine is stopped, which ends connections as clients do. Repeated, it does nothing.
    void stop() noexcept;

    // Daemon threads.

    /// @throws std::system_error when it cannot be watched.
    void add(const ClientConnection& client);
    /// Before the engine closes the descriptor, or gives it away.
    void remove(const ClientConnection& client) noexcept;
    /// Has a removed connection closed only when its client has had time to read its answer.
    void linger(const ClientConnection& client) noexcept QL_EXCLUDES(mutex_);

    /// Whether there are such connections. Any thread.
    bool isLingering() QL_EXCLUDES(mutex_);

private:
    /// A connection whose client leaves, to be looked at again.
    struct Due {
        std::uint64_t number;
        std::int64_t delayMs;
    };

    void run() override;
    void runOnce(SocketWatch::NewsBuffer& buffer);
    void takeLingering(std::int64_t nowMs) QL_EXCLUDES(mutex_);
    void take(const SocketWatch::News& news, std::int64_t nowMs);
    void takeDue(std::int64_t nowMs);
    void lookLater(ClientConnection& client, const Due& due, std::int64_t nowMs) noexcept;
    bool look(ClientConnection& client, bool isFirst);

    ConnectionTable& connections_;
    SocketWatch sockets_;
    std::atomic<bool> isStopping_{false};

    // Constant while the thread runs.
    http::HttpServerImpl* application_ = nullptr;
    bool endsOnClientClose_ = true;
    std::int64_t periodMs_ = 0;
    std::function<void(std::int64_t)> eachPeriod_;

    qlMutex mutex_;
    std::vector<LingeringSocket> newLingering_ QL_GUARDED_BY(mutex_);
    bool isLingering_ QL_GUARDED_BY(mutex_) = false;

    // The thread's own.
    std::multimap<std::int64_t, Due> due_;
    LingeringCloses lingering_{sockets_};
    std::int64_t nextPeriodMs_ = 0;
};

} // namespace ql::impl
