// SPDX-License-Identifier: MIT
#pragma once

#include "engine/ConnectionTracking.h"
#include "engine/EngineConnection.h"
#include "engine/OwnSocket.h"
#include "server/DeadlineRule.h"
#include "vireo/support/IpAddress.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

class Exchange;
struct RequestContext;

/// A TCP connection of a server that waits by events, from its acceptance until the engine closes it or hands it over
/// as a WebSocket.
///
/// Its descriptor and its request belong to the daemon thread, which lets go of them without asking anybody. Another
/// thread, but for the request's worker, may act on either only while it holds the gate and has looked there that it is
/// still open, or that there is a request: the daemon thread goes through the gate before it lets go.
///
/// Order of locks: the gate, a device's lock, the engine's mutex. Nothing that holds a device's lock takes the gate.
class ClientConnection : public ConnectionRecord {
public:
    /// @param number of this connection, unique in its server's run.
    ClientConnection(std::uint64_t number, std::uint64_t socket, const IpAddress& clientAddress, EnginePlace place = {})
        : number_(number), socket_(socket), clientAddress_(clientAddress), place_(place) {
        lastProgress_.sinceMs = startTime;
    }

    std::uint64_t number() const { return number_; }
    /// The descriptor; a stale number once the connection is closed.
    std::uint64_t socket() const { return socket_; }
    const IpAddress& clientAddress() const { return clientAddress_; }
    /// None where there is no engine.
    EnginePlace place() const { return place_; }
    /// Where its daemon thread notes how far it has come.
    DeadlineMarks& marks() { return marks_; }
    /// What Deadlines has seen of them, whose thread alone touches it.
    LastProgress& lastProgress() { return lastProgress_; }

    // The daemon thread's, under no lock.

    /// Whether it is cut since a head took too long. To be told once.
    bool takeHeadLate() noexcept { return isHeadLate_.exchange(false); }

    /// Known where there are observers.
    ConnectionEnds ends;
    /// Of the request that the engine has not completed; null for none. It says so itself.
    RequestContext* context = nullptr;
    void beginExchange(HttpBaseRequest& request, std::shared_ptr<Exchange> exchange) QL_EXCLUDES(gate_);
    /// Before the request is the application's again, which may delete it. What ends is not suspended any more.
    void endExchange() noexcept QL_EXCLUDES(gate_);
    /// Before the engine closes the descriptor, or gives it away.
    void close() noexcept QL_EXCLUDES(gate_);
    /// The same over TLS, where the engine goes on between the connection and a WebSocket.
    /// @param endOfWebSocket which that reads from and sends to; none when the system has no descriptor for it.
    void handOver(OwnSocket&& endOfWebSocket) noexcept QL_EXCLUDES(gate_);

    /// Its last answer was sent before its body was there.
    void setAnsweredEarly(bool early) { wasAnsweredEarly_ = early; }
    bool wasAnsweredEarly() const { return wasAnsweredEarly_; }

    /// The client has ended its sending, or reset the connection.
    bool hasPeerEnded() const { return peerEnded_; }

    // The watch's.

    /// @return whether it was not noted before.
    bool notePeerEnd() { return !peerEnded_.exchange(true); }
    bool noteReset() {
        peerEnded_ = true;
        return !std::exchange(isReset_, true);
    }
    bool isReset() const { return isReset_; }

    // Other threads.

    /// How many exchanges have ended, and how many have begun; asked for in this order, the second is not less.
    ///@{
    std::uint64_t endedExchanges() const { return endedExchanges_.load(std::memory_order_acquire); }
    std::uint64_t begunExchanges() const { return begunExchanges_.load(std::memory_order_acquire); }
    ///@}

    /// From now on it is not suspended, neither by the exchange that lives nor by later ones. Under no lock of a
    /// device.
    void finishExchanges() noexcept QL_EXCLUDES(gate_);

    qlMutex& gate() QL_RETURN_CAPABILITY(gate_) { return gate_; }
    bool isOpen() const QL_REQUIRES(gate_) { return isOpen_; }
    /// It is cut since a head took too long. A request that begins all the same is cut for that, too.
    void setHeadLate() QL_REQUIRES(gate_) { isHeadLate_ = true; }
    /// Its client has left, and nobody can look at it again. A request that begins all the same is cut for that, too.
    void setUnwatched() QL_REQUIRES(gate_) { isUnwatched_ = true; }
    /// Null between two requests, as is exchange().
    HttpBaseRequest* request() const QL_REQUIRES(gate_) { return request_; }
    Exchange* exchange() const QL_REQUIRES(gate_) { return exchange_.get(); }
    /// Open as long as the connection is a WebSocket's and the engine between them.
    const OwnSocket& endOfWebSocket() const QL_REQUIRES(gate_) { return endOfWebSocket_; }
    /// Whether it has had a request.
    bool hasServed() const QL_REQUIRES(gate_) { return hasServed_; }

private:
    const std::uint64_t number_;
    const std::uint64_t socket_;
    const IpAddress clientAddress_;
    const EnginePlace place_;
    std::atomic<bool> peerEnded_{false};
    bool isReset_ = false;
    bool wasAnsweredEarly_ = false;
    DeadlineMarks marks_;
    LastProgress lastProgress_;
    std::atomic<bool> isHeadLate_{false};
    std::atomic<std::uint64_t> begunExchanges_{0};
    std::atomic<std::uint64_t> endedExchanges_{0};
    qlMutex gate_;
    bool isOpen_ QL_GUARDED_BY(gate_) = true;
    bool hasServed_ QL_GUARDED_BY(gate_) = false;
    bool isUnwatched_ QL_GUARDED_BY(gate_) = false;
    bool isFinishing_ QL_GUARDED_BY(gate_) = false;
    HttpBaseRequest* request_ QL_GUARDED_BY(gate_) = nullptr;
    std::shared_ptr<Exchange> exchange_ QL_GUARDED_BY(gate_);
    OwnSocket endOfWebSocket_ QL_GUARDED_BY(gate_);
};

} // namespace ql::impl
