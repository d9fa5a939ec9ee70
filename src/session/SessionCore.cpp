#include "session/SessionCore.h"

#include "engine/PeerEnd.h"
#include "engine/UpgradeHandle.h"
#include "frame/ExceptionLog.h"
#include "session/CloseCode.h"
#include "session/PayloadBytes.h"
#include "session/SessionRoster.h"
#include "session/SharedMessage.h"
#include "session/pool/TaskPool.h"
#include "streams/DaemonCall.h"
#include "vireo/support/qlSystemUtils.h"

#include <exception>
#include <utility>

namespace ql::impl {

namespace {

using http::WebSocketSend;

constexpr const char* Name = "a session of a WebSocket";

/// The session that the calling thread serves.
thread_local const SessionCore* served = nullptr;

} // namespace

/// Marks the calling thread as the one that serves a session.
class SessionCore::Served {
public:
    explicit Served(const SessionCore& session) : previous_(std::exchange(served, &session)) {}
    ~Served() { served = previous_; }
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

private:
    const SessionCore* const previous_;
};

SessionCore::SessionCore() = default;

SessionCore::~SessionCore() = default;

void SessionCore::prepare(std::shared_ptr<const SessionSettings> settings,
                          const std::optional<DeflateAgreement>& deflate) {
    receiver_ =
        std::make_unique<SessionReceiver>(FrameDecoderSettings{settings->maxMessageBytes, settings->inPieces, deflate});
    output_.prepare(settings, deflate);
    settings_ = std::move(settings);
}

std::shared_ptr<SessionCore> SessionCore::Begin(SessionStart start) noexcept {
    std::shared_ptr<SessionCore> core = start.session->core_;
    core->session_ = std::move(start.session);
    core->socket_ = start.socket;
    core->upgradeHandle_ = start.upgradeHandle;
    core->between_ = start.between;
    prepareSocket(start.socket);
    core->output_.begin(start.socket);
    try {
        core->receiver_->keep(start.extraBytes);
    } catch (...) {
        logCurrentException(Name);
        core->isCut_ = true;
    }
    return core;
}

void SessionCore::forgetSession() noexcept {
    if (socket_ == InvalidSocket) {
        output_.end();
    }
}

void SessionCore::sayGoodbye() noexcept {
    try {
        close(CloseCode::GoingAway, {});
    } catch (...) {
        logCurrentException(Name);
    }
}

void SessionCore::cut(TaskPool& pool) noexcept {
    isCut_ = true;
    if (pool.remove(*this)) {
        abandon();
    } else {
        schedule();
    }
}

void SessionCore::abandon() noexcept {
    if (phase_ != Phase::Gone) {
        lose(CloseCode::GoingAway);
    }
    left();
}

void SessionCore::left() noexcept {
    output_.end();
    receiver_.reset();
    if (between_ != InvalidSocket && !lingering_.hasArrived(socket_, between_)) {
        // The engine would wait, be it for ever, until the peer takes what it has been sent.
        shutSocket(between_);
    }
    closeUpgradedConnection(upgradeHandle_, between_);
    if (roster_ != nullptr) {
        roster_->remove(*this);
    }
}

WebSocketSend SessionCore::sendMessage(bool isText, std::span<const unsigned char> payload) {
    return conclude(output_.sendMessage(isText, payload, sender()));
}

WebSocketSend SessionCore::send(SharedMessage& message) {
    return conclude(output_.sendShared(message, sender()));
}

WebSocketSend SessionCore::sendAsOneOfMany(SharedMessage& message) {
    const Sender sender = this->sender();
    return conclude(output_.sendShared(message, sender == Sender::Outsider ? Sender::Unwaiting : sender));
}

WebSocketSend SessionCore::ping(std::span<const unsigned char> payload) {
    return conclude(output_.ping(payload, sender()));
}

WebSocketSend SessionCore::sendPiece(FrameType type, std::span<const unsigned char> piece, bool isLast) {
    return conclude(output_.sendPiece(type, piece, isLast, sender()));
}

void SessionCore::close(std::uint16_t code, std::string_view reason) {
    if (output_.close(code, reason, sender())) {
        schedule();
    }
}

Sender SessionCore::sender() const {
    if (served == this) {
        return receiver_ && receiver_->hasMore() ? Sender::BusyTurn : Sender::OwnTurn;
    }
    // A daemon thread may have to hand on what the sender would wait for.
    return TaskPool::IsPoolThread() || DaemonCall::isUnderWay() ? Sender::Unwaiting : Sender::Outsider;
}

WebSocketSend SessionCore::conclude(SendOutcome outcome) {
    if (outcome.needsTurn) {
        schedule();
    }
    return outcome.result;
}

TurnResult SessionCore::serve(const Turn& turn) noexcept {
    const Served mark(*this);
    if (isCut_) {
        lose(CloseCode::GoingAway);
    }
    try {
        if (phase_ == Phase::Early) {
            open();
        }
        if (phase_ == Phase::Open) {
            receive(turn);
        }
        if (phase_ == Phase::Open) {
            const TurnResult result = settle();
            if (phase_ == Phase::Open) {
                return result;
            }
        }
    } catch (...) {
        logCurrentException(Name);
        fail(CloseCode::InternalError, {});
    }
    receiver_.reset();
    TurnResult result{TurnResult::Next::Leave};
    if (phase_ == Phase::Lingering) {
        result = lingering_.serve(turn, output_, socket_, between_);
    }
    if (result.next == TurnResult::Next::Leave) {
        phase_ = Phase::Gone;
    }
    return result;
}

void SessionCore::open() {
    phase_ = Phase::Open;
    keepAlive_.emplace(settings_, qlSystemUtils::GetTimeBaseMs());
    output_.open();
    session_->onOpen();
}

void SessionCore::receive(const Turn& turn) {
    receiver_->note(turn);
    if (output_.isPaused() || !receiver_->mayHaveMore()) {
        return;
    }
    turnMessages_ = 0;
    const SessionReceiver::Result result = receiver_->receive(turn, socket_, *this);
    if (receiver_->takeSign()) {
        keepAlive_->received(qlSystemUtils::GetTimeBaseMs());
    }
    switch (result) {
    case SessionReceiver::Result::Drained:
    case SessionReceiver::Result::Stopped:
    case SessionReceiver::Result::Closed:
        break;
    case SessionReceiver::Result::Failed:
        fail(receiver_->decoder().failureCode(), receiver_->decoder().failureText());
        break;
    case SessionReceiver::Result::Lost:
        lose(CloseCode::Lost);
        break;
    }
}

void SessionCore::noteMessage() {
    if (settings_->idleTimeoutMs != 0) {
        keepAlive_->messageReceived(qlSystemUtils::GetTimeBaseMs());
    }
}

FrameSink::Next SessionCore::next() {
    return ++turnMessages_ == TurnMessages || output_.isPaused() ? Next::Stop : Next::GoOn;
}

FrameSink::Next SessionCore::onMessage(bool isText, std::span<const unsigned char> payload) {
    // What comes after the application has closed is of no interest to it.
    if (output_.isOpen()) {
        noteMessage();
        if (isText) {
            session_->onText(textOf(payload));
        } else {
            session_->onBinary(payload);
        }
    }
    return next();
}

FrameSink::Next SessionCore::onPiece(bool isText, std::span<const unsigned char> piece, bool isLast) {
    if (output_.isOpen()) {
        noteMessage();
        session_->onPiece(piece, isText, isLast);
    }
    return next();
}

FrameSink::Next SessionCore::onPing(std::span<const unsigned char> payload) {
    output_.pong(payload);
    return next();
}

FrameSink::Next SessionCore::onPong(std::span<const unsigned char> payload) {
    if (output_.isOpen()) {
        session_->onPong(payload);
    }
    return next();
}

void SessionCore::onClose(std::uint16_t code, std::string_view reason) {
    // Only clients may miss an extension.
    output_.close(code == CloseCode::None || CloseCode::mayBeSent(code) ? code : CloseCode::Normal, {}, sender());
    endSession(Phase::Lingering, code, reason, true);
}

TurnResult SessionCore::settle() {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    const SessionOutput::Status status = output_.flush();
    if (status.hasProgressed) {
        keepAlive_->received(nowMs);
    }
    if (status.isDrained) {
        session_->onDrained();
    }
    KeepAlive::Step step = keepAlive_->step(status, nowMs);
    if (status.isBroken && !receiver_->mayHaveMore()) {
        step = KeepAlive::Step::Lose;
    }
    take(step, nowMs);

    TurnResult result;
    // What was done after the look at the output wants another look.
    const bool isSettled = !status.isDrained && step == KeepAlive::Step::None;
    const bool isPaused = output_.isPaused();
    if (!isSettled || (receiver_->mayHaveMore() && !isPaused)) {
        result.next = TurnResult::Next::Again;
    }
    result.wantsToRead = !isPaused;
    result.wantsToWrite = !status.isEmpty;
    result.dueMs = keepAlive_->dueMs(status);
    return result;
}

void SessionCore::take(KeepAlive::Step step, std::int64_t nowMs) {
    switch (step) {
    case KeepAlive::Step::None:
        break;
    case KeepAlive::Step::Ping:
        output_.ping({}, Sender::OwnTurn);
        keepAlive_->pinged(nowMs);
        break;
    case KeepAlive::Step::Close:
        close(CloseCode::Normal, {});
        break;
    case KeepAlive::Step::Lose:
        lose(CloseCode::Lost);
        break;
    }
}

void SessionCore::fail(std::uint16_t code, std::string_view text) noexcept {
    try {
        output_.close(code, text, Sender::OwnTurn);
    } catch (...) {
        logCurrentException(Name);
        output_.end();
    }
    endSession(Phase::Lingering, output_.closeCodeOr(code), {}, false);
}

void SessionCore::lose(std::uint16_t code) noexcept {
    output_.end();
    endSession(Phase::Gone, output_.closeCodeOr(code), {}, false);
}

void SessionCore::endSession(Phase next, std::uint16_t code, std::string_view reason, bool isClean) noexcept {
    const Phase phase = std::exchange(phase_, next);
    lingering_.begin(isClean, qlSystemUtils::GetTimeBaseMs() + settings_->closeTimeoutMs);
    if (phase == Phase::Open) {
        try {
            session_->onClose(code, reason, isClean);
        } catch (...) {
            logCurrentException(Name);
        }
    }
    session_.reset();
}

} // namespace ql::impl
