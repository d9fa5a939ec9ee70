// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/SocketWatch.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"

#include <atomic>
#include <cstdint>
#include <unordered_map>

namespace ql::impl {

/// A handshake of a connection.
struct Handshake {
    EngineConnection connection{nullptr};
    std::uint64_t socket = 0;
    /// Since when, of what qlSystemUtils::GetTimeBaseMs() says.
    std::int64_t sinceMs = 0;
};

/// Keeps the handshakes of a server that wait for their clients, with a thread that notices when those go on.
///
/// An engine that is told of bytes by edges takes a connection for ready until it has read all there is, and asks it in
/// each of its turns. In a handshake it is not the engine that reads, so that it would ask from the first byte on, and
/// GnuTLS compute anew each time what the handshake comes to. So the connection is suspended in the engine, which then
/// doesn't know it any more, until it has something to be read, is at its end, or has taken too long.
class HandshakeWatch final : private qlThread {
public:
    HandshakeWatch() = default;
    ~HandshakeWatch() override;

    /// @param timeoutMs how long a handshake may take, as the engine would see to; 0 for ever.
    /// @throws what a thread's start does, and std::system_error when the system has no descriptor to give.
    void start(std::int64_t timeoutMs) QL_EXCLUDES(mutex_);
    /// Before the engines are stopped, which bear no connection that is suspended: nothing is put aside any more.
    /// Repeated, it does nothing.
    void stop() noexcept QL_EXCLUDES(mutex_);

    /// For the daemon thread, in the engine's call for this connection, which is in its handshake: the engine calls
    /// again when there is something, be it there already.
    /// @return false when it cannot be watched, and the engine goes on asking.
    bool putAside(const Handshake& handshake) noexcept QL_EXCLUDES(mutex_);

private:
    using Waiting = std::unordered_map<std::uint64_t, Handshake>;

    void run() override;
    void takeUp(Waiting::iterator waiting) QL_REQUIRES(mutex_);
    void endLate(std::int64_t nowMs) QL_REQUIRES(mutex_);

    SocketWatch sockets_;
    std::atomic<bool> isStopping_{false};
    /// Constant while the thread runs.
    std::int64_t timeoutMs_ = 0;

    /// Held while a connection is suspended or resumed, so that the one does not overtake the other.
    qlMutex mutex_;
    bool isOpen_ QL_GUARDED_BY(mutex_) = false;
    /// By their sockets: who is suspended, and nobody else.
    Waiting waiting_ QL_GUARDED_BY(mutex_);
};

} // namespace ql::impl
