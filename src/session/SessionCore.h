// SPDX-License-Identifier: MIT
#pragma once

#include "session/FrameDecoder.h"
#include "session/KeepAlive.h"
#include "session/Lingering.h"
#include "session/SessionOutput.h"
#include "session/SessionReceiver.h"
#include "session/SessionSettings.h"
#include "session/SessionStart.h"
#include "session/pool/PoolTask.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace ql::impl {

class SessionRoster;
class TaskPool;

/// One WebSocket by RFC 6455: brings together the application's session, what comes from the peer and what goes to it.
/// Handles share it; it outlives the connection as long as they do.
///
///     Early --> Open ---> Lingering ---> Gone
///       \         \                       ^
///        \_________\______________________/  the connection is lost, or cut
///
/// Open: the session is called. Lingering: the session has gone; what is queued, the close frame last, is sent, and
/// what still comes is read and forgotten: where something is unread when a socket is closed, the system takes back
/// what was sent last. Gone: the socket is closed, or about to be.
///
/// One thread at a time serves it, a pool's, or at a stop another: everything but `output_` is that thread's.
class SessionCore final : public PoolTask, private FrameSink {
public:
    static SessionCore& Of(const http::WebSocketSession& session) { return *session.core_; }
    static const std::shared_ptr<SessionCore>& Of(const http::WebSocketHandle& handle) { return handle.core_; }

    // ---- The beginning, in this order, each on one thread ----

    SessionCore();
    ~SessionCore() override;

    /// Makes all that the connection will need. Before the peer is told that it is accepted.
    /// @throws std::bad_alloc
    void prepare(std::shared_ptr<const SessionSettings> settings, const std::optional<DeflateAgreement>& deflate);
    /// The session has its connection, and belongs to the core. It is to come into a roster and a pool, else to be
    /// abandoned.
    static std::shared_ptr<SessionCore> Begin(SessionStart start) noexcept;
    void enter(SessionRoster& roster) { roster_ = &roster; }

    // ---- The end ----

    /// The application's object goes. Where it never had a connection, nothing can be sent from now on.
    void forgetSession() noexcept;
    /// Closes with 1001. Any thread.
    void sayGoodbye() noexcept;
    /// Ends it without waiting for the peer: in this thread, unless another one serves it, which does so then.
    void cut(TaskPool& pool) noexcept;
    /// Ends it in this thread, when it is in no pool, or no longer.
    void abandon() noexcept override;

    // ---- What handles do, any thread; as WebSocketHandle has it, arguments checked ----

    http::WebSocketSend sendMessage(bool isText, std::span<const unsigned char> payload);
    http::WebSocketSend send(SharedMessage& message);
    /// Without waiting for room.
    http::WebSocketSend sendAsOneOfMany(SharedMessage& message);
    http::WebSocketSend ping(std::span<const unsigned char> payload);
    http::WebSocketSend openMessage() { return output_.openMessage(); }
    http::WebSocketSend sendPiece(FrameType type, std::span<const unsigned char> piece, bool isLast);
    void close(std::uint16_t code, std::string_view reason);
    std::uint64_t queuedBytes() const { return output_.queuedBytes(); }
    bool isOpen() const { return output_.isOpen(); }

private:
    enum class Phase { Early, Open, Lingering, Gone };
    class Served;

    // PoolTask
    std::uint64_t getSocket() const override { return socket_; }
    TurnResult serve(const Turn& turn) noexcept override;
    void left() noexcept override;

    // FrameSink
    Next onMessage(bool isText, std::span<const unsigned char> payload) override;
    Next onPiece(bool isText, std::span<const unsigned char> piece, bool isLast) override;
    Next onPing(std::span<const unsigned char> payload) override;
    Next onPong(std::span<const unsigned char> payload) override;
    void onClose(std::uint16_t code, std::string_view reason) override;

    Sender sender() const;
    http::WebSocketSend conclude(SendOutcome outcome);

    void open();
    void receive(const Turn& turn);
    void noteMessage();
    /// After a call of the session.
    Next next();
    /// Sends, and does what the time asks for.
    TurnResult settle();
    void take(KeepAlive::Step step, std::int64_t nowMs);
    /// Tells the peer why, and lingers.
    void fail(std::uint16_t code, std::string_view text) noexcept;
    /// @param code what the session is told, unless a close frame has said another.
    void lose(std::uint16_t code) noexcept;
    void endSession(Phase next, std::uint16_t code, std::string_view reason, bool isClean) noexcept;

    SessionOutput output_;

    // ---- Of the thread that serves it ----

    std::shared_ptr<const SessionSettings> settings_;
    std::unique_ptr<http::WebSocketSession> session_;
    std::unique_ptr<SessionReceiver> receiver_;
    std::optional<KeepAlive> keepAlive_;
    std::uint64_t socket_ = InvalidSocket;
    void* upgradeHandle_ = nullptr;
    std::uint64_t between_ = InvalidSocket;
    SessionRoster* roster_ = nullptr;
    Lingering lingering_;
    unsigned turnMessages_ = 0;
    Phase phase_ = Phase::Early;

    /// Set by who cuts; the turn that is asked for afterwards sees it.
    std::atomic<bool> isCut_{false};
};

} // namespace ql::impl
