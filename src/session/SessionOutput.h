// SPDX-License-Identifier: MIT
#pragma once

#include "session/FrameSender.h"
#include "session/MessageEncoder.h"
#include "session/SessionSettings.h"
#include "vireo/WebSocketWriter.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace ql::impl {

class SharedMessage;

/// Who sends something, which decides when it leaves and what happens without room for it.
enum class Sender {
    Outsider,  ///< a thread of the application, which can wait
    Unwaiting, ///< a thread of a pool or of the engine, or one that sends to many
    OwnTurn,   ///< the thread that serves the session, which sends once more before its turn is over
    BusyTurn,  ///< the same with more input at hand, the answers to which can leave together with this
};

/// What became of something that was to be sent.
struct SendOutcome {
    http::WebSocketSend result = http::WebSocketSend::Closed;
    /// Whether the session should have a turn now: something waits, or it is to be closed.
    bool needsTurn = false;
};

/// The outgoing half of a session: whether something may be sent, and what waits. Any thread.
///
///     Early -- open() --> Open -- close() --> Closing -- end() --> Ended
///       \                   \_______________________________________/
///        \_______ close() _____________________^
///
/// The mutex is held while the socket is sent to, which never blocks: once end() has returned, nobody does that.
class SessionOutput {
public:
    enum class Stage {
        Early,   ///< nothing may be sent yet
        Open,    ///< messages may be sent
        Closing, ///< the close frame is the last that is sent
        Ended,   ///< nothing is sent
    };

    /// What the session's turn has to know.
    struct Status {
        Stage stage = Stage::Ended;
        bool isEmpty = true;
        /// The connection takes nothing any more.
        bool isBroken = false;
        /// The queue has come down to half its limit after something did not fit, or more than that half waited. Told
        /// once.
        bool isDrained = false;
        /// The peer has made room in a full socket since this was asked last.
        bool hasProgressed = false;
        std::optional<std::int64_t> fullSinceMs;
        /// With Closing.
        std::int64_t closingSinceMs = 0;
        /// When the last message was sent; only kept for the limit of idleness.
        std::int64_t messageMs = 0;
    };

    // ---- By who makes the session ----

    /// @throws std::bad_alloc
    void prepare(std::shared_ptr<const SessionSettings> settings, const std::optional<DeflateAgreement>& deflate)
        QL_EXCLUDES(mutex_);
    void begin(std::uint64_t socket) QL_EXCLUDES(mutex_);
    void open() QL_EXCLUDES(mutex_);

    // ---- Sending; when one throws std::bad_alloc, nothing is sent ----

    SendOutcome sendMessage(bool isText, std::span<const unsigned char> payload, Sender sender) QL_EXCLUDES(mutex_);
    SendOutcome sendShared(SharedMessage& message, Sender sender) QL_EXCLUDES(mutex_);
    SendOutcome ping(std::span<const unsigned char> payload, Sender sender) QL_EXCLUDES(mutex_);
    /// Leaves at the end of the turn.
    void pong(std::span<const unsigned char> payload) QL_EXCLUDES(mutex_);
    /// The close frame comes behind what waits. Nothing more than once.
    /// @param code CloseCode::None for a frame without one.
    /// @return whether the session should have a turn now.
    bool close(std::uint16_t code, std::string_view reason, Sender sender) QL_EXCLUDES(mutex_);

    /// Begins a message in pieces. Full: there is one.
    http::WebSocketSend openMessage() QL_EXCLUDES(mutex_);
    SendOutcome sendPiece(FrameType type, std::span<const unsigned char> piece, bool isLast, Sender sender)
        QL_EXCLUDES(mutex_);

    // ---- By who serves the session ----

    /// Sends what the socket takes.
    Status flush() QL_EXCLUDES(mutex_);
    /// Forgets what waits, and the socket.
    void end() noexcept QL_EXCLUDES(mutex_);

    // ---- Snapshots ----

    std::uint64_t queuedBytes() const QL_EXCLUDES(mutex_);
    /// Looks without the lock: who is too late has its message refused under it.
    bool isOpen() const { return stage_.load(std::memory_order_relaxed) == Stage::Open; }

    /// The code of the close frame, once it is queued.
    std::uint16_t closeCodeOr(std::uint16_t other) const QL_EXCLUDES(mutex_);
    /// Whether the session's turn should receive nothing more. For that turn.
    bool isPaused() const { return isPaused_.load(std::memory_order_relaxed); }

private:
    using Kind = FrameSender::Kind;
    using Policy = http::WebSocketOptions::QueuePolicy;

    void sendCompressed(bool isText, std::span<const unsigned char> payload, bool now) QL_REQUIRES(mutex_);
    void finishMessage() QL_REQUIRES(mutex_);
    /// Makes room for a frame of so many bytes, or says what becomes of it instead.
    std::optional<SendOutcome> refuse(Kind kind, std::uint64_t bytes, Sender sender) QL_REQUIRES(mutex_);
    bool fits(Kind kind, std::uint64_t bytes) const QL_REQUIRES(mutex_);
    bool dropUntilFits(Kind kind, std::uint64_t bytes) QL_REQUIRES(mutex_);
    bool mayExceed(Kind kind, Sender sender) const QL_REQUIRES(mutex_);
    bool mayWait(Kind kind, std::uint64_t bytes, Sender sender) const QL_REQUIRES(mutex_);
    /// Whether it waits for the end of a message in pieces, which whoever sends it may have to bring.
    bool mustStayBehind(Kind kind) const QL_REQUIRES(mutex_);
    /// The peer reads too slowly.
    void giveUp() QL_REQUIRES(mutex_);
    void retry() QL_REQUIRES(mutex_);
    void beginClosing(const EncodedFrame& frame, std::uint16_t code) QL_REQUIRES(mutex_);
    /// After something was sent or queued.
    SendOutcome conclude(bool wasEmpty, Sender sender) QL_REQUIRES(mutex_);
    void noteMessage() QL_REQUIRES(mutex_);
    std::uint64_t half() const QL_REQUIRES(mutex_) { return settings_->maxQueuedBytes / 2; }

    mutable qlMutex mutex_;
    /// Woken when a queue that somebody waits for has become shorter, or nothing may be sent any more.
    qlWaitCondition room_;
    unsigned waiting_ QL_GUARDED_BY(mutex_) = 0;

    std::shared_ptr<const SessionSettings> settings_ QL_GUARDED_BY(mutex_);
    MessageEncoder encoder_ QL_GUARDED_BY(mutex_);
    FrameSender sender_ QL_GUARDED_BY(mutex_);
    /// Written under the mutex.
    std::atomic<Stage> stage_{Stage::Early};
    std::optional<std::uint16_t> closeCode_ QL_GUARDED_BY(mutex_);
    bool isDrainDue_ QL_GUARDED_BY(mutex_) = false;
    /// It will be at the end of the message in pieces.
    bool isDrainDueBehind_ QL_GUARDED_BY(mutex_) = false;
    /// Set by the session's own turn, which reads it alone.
    std::atomic<bool> isPaused_{false};
    std::int64_t closingSinceMs_ QL_GUARDED_BY(mutex_) = 0;
    std::int64_t messageMs_ QL_GUARDED_BY(mutex_) = 0;
};

} // namespace ql::impl
