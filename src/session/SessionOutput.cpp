#include "session/SessionOutput.h"

#include "session/CloseCode.h"
#include "session/SharedMessage.h"
#include "vireo/support/qlSystemUtils.h"

#include <utility>

namespace ql::impl {

namespace {

using http::WebSocketSend;

/// What a turn with more input at hand keeps for its end: copying more costs as much as a system call.
constexpr std::size_t MostBytesKeptBack = 16384;

bool leavesNow(std::size_t bytes, Sender sender) {
    return sender != Sender::BusyTurn || bytes > MostBytesKeptBack;
}

bool isOwn(Sender sender) {
    return sender == Sender::OwnTurn || sender == Sender::BusyTurn;
}

} // namespace

void SessionOutput::prepare(std::shared_ptr<const SessionSettings> settings,
                            const std::optional<DeflateAgreement>& deflate) {
    const qlMutexLocker lock(mutex_);
    if (deflate) {
        encoder_ = MessageEncoder(CompressionSettings::of(*settings->compression).deflate, *deflate);
    }
    settings_ = std::move(settings);
}

void SessionOutput::begin(std::uint64_t socket) {
    const qlMutexLocker lock(mutex_);
    sender_.begin(socket);
}

void SessionOutput::open() {
    const qlMutexLocker lock(mutex_);
    if (stage_ == Stage::Early) {
        stage_ = Stage::Open;
        noteMessage();
    }
}

SendOutcome SessionOutput::sendMessage(bool isText, std::span<const unsigned char> payload, Sender sender) {
    const qlMutexLocker lock(mutex_);
    if (const auto refused = refuse(Kind::Message, payload.size(), sender)) {
        return *refused;
    }
    const bool wasEmpty = sender_.queue().isEmpty();
    const bool now = leavesNow(payload.size(), sender);
    if (encoder_.wouldCompress(payload.size())) {
        if (settings_->queuePolicy == Policy::DropOldest) {
            // A message that is dropped must not be one that others refer to.
            encoder_.forgetContext();
        }
        sendCompressed(isText, payload, now);
    } else {
        sender_.send(Kind::Message, isText ? FrameType::Text : FrameType::Binary, true, payload, now);
    }
    noteMessage();
    return conclude(wasEmpty, sender);
}

void SessionOutput::sendCompressed(bool isText, std::span<const unsigned char> payload, bool now) {
    try {
        sender_.send(Kind::Message, encoder_.encode(isText, payload), now);
    } catch (...) {
        // The peer will not get what later messages would refer to.
        encoder_.forgetContext();
        throw;
    }
}

SendOutcome SessionOutput::sendShared(SharedMessage& message, Sender sender) {
    qlMutexLocker lock(mutex_);
    if (stage_ != Stage::Open) {
        return {WebSocketSend::Closed, false};
    }
    EncodedFrame frame = message.plain();
    const bool isCompressed = encoder_.wouldCompress(message.payloadBytes());
    if (isCompressed) {
        const int windowBits = encoder_.windowBits();
        const std::shared_ptr<const SessionSettings> settings = settings_;
        lock.unlock();
        // Others wait for it only where they need the same.
        frame = message.compressed(CompressionSettings::of(*settings->compression).deflate, windowBits);
        lock.lock();
    }
    if (const auto refused = refuse(Kind::Message, frame.bytes().size(), sender)) {
        return *refused;
    }
    if (isCompressed) {
        encoder_.forgetContext();
    }
    const bool wasEmpty = sender_.queue().isEmpty();
    sender_.send(Kind::Message, frame, leavesNow(frame.bytes().size(), sender));
    noteMessage();
    return conclude(wasEmpty, sender);
}

SendOutcome SessionOutput::ping(std::span<const unsigned char> payload, Sender sender) {
    const EncodedFrame frame(FrameType::Ping, true, payload);
    const qlMutexLocker lock(mutex_);
    if (stage_ != Stage::Open || sender_.isBroken()) {
        return {WebSocketSend::Closed, false};
    }
    if (!fits(Kind::Piece, frame.bytes().size())) {
        return {WebSocketSend::Full, false};
    }
    const bool wasEmpty = sender_.queue().isEmpty();
    sender_.queue().addPing(frame);
    if (leavesNow(0, sender)) {
        sender_.sendQueued();
    }
    return conclude(wasEmpty, sender);
}

void SessionOutput::pong(std::span<const unsigned char> payload) {
    const EncodedFrame frame(FrameType::Pong, true, payload);
    const qlMutexLocker lock(mutex_);
    if (stage_ == Stage::Open && !sender_.isBroken()) {
        sender_.queue().setPong(frame);
    }
}

bool SessionOutput::close(std::uint16_t code, std::string_view reason, Sender sender) {
    const EncodedFrame frame = encodeClose(code, reason);
    const qlMutexLocker lock(mutex_);
    if (stage_ > Stage::Open) {
        return false;
    }
    beginClosing(frame, code);
    if (leavesNow(0, sender)) {
        sender_.sendQueued();
    }
    return !isOwn(sender);
}

WebSocketSend SessionOutput::openMessage() {
    const qlMutexLocker lock(mutex_);
    if (stage_ != Stage::Open || sender_.isBroken()) {
        return WebSocketSend::Closed;
    }
    if (sender_.queue().isMessageOpen()) {
        return WebSocketSend::Full;
    }
    sender_.queue().openMessage();
    return WebSocketSend::Queued;
}

SendOutcome SessionOutput::sendPiece(FrameType type, std::span<const unsigned char> piece, bool isLast, Sender sender) {
    const qlMutexLocker lock(mutex_);
    if (const auto refused = refuse(Kind::Piece, piece.size(), sender)) {
        return *refused;
    }
    const bool wasEmpty = sender_.queue().isEmpty();
    sender_.send(Kind::Piece, type, isLast, piece, leavesNow(piece.size(), sender));
    if (isLast) {
        finishMessage();
        if (leavesNow(0, sender)) {
            sender_.sendQueued();
        }
    }
    noteMessage();
    return conclude(wasEmpty, sender);
}

void SessionOutput::finishMessage() {
    isDrainDue_ = isDrainDue_ || std::exchange(isDrainDueBehind_, false);
    try {
        sender_.queue().finishMessage();
    } catch (...) {
        // The message has ended for the peer.
        sender_.breakOff();
    }
}

SessionOutput::Status SessionOutput::flush() {
    const qlMutexLocker lock(mutex_);
    retry();
    const OutgoingQueue& queue = sender_.queue();
    Status status;
    if (queue.sendableLoad() <= half()) {
        isPaused_ = false;
        status.isDrained = stage_ == Stage::Open && std::exchange(isDrainDue_, false);
    }
    status.stage = stage_;
    status.isEmpty = queue.isEmpty();
    status.isBroken = sender_.isBroken();
    status.hasProgressed = sender_.takeProgress();
    status.fullSinceMs = sender_.fullSinceMs();
    status.closingSinceMs = closingSinceMs_;
    status.messageMs = messageMs_;
    return status;
}

void SessionOutput::end() noexcept {
    const qlMutexLocker lock(mutex_);
    stage_ = Stage::Ended;
    sender_.end();
    encoder_ = MessageEncoder();
    room_.wakeAll();
}

std::uint64_t SessionOutput::queuedBytes() const {
    const qlMutexLocker lock(mutex_);
    return sender_.queue().bytes();
}

std::uint16_t SessionOutput::closeCodeOr(std::uint16_t other) const {
    const qlMutexLocker lock(mutex_);
    return closeCode_.value_or(other);
}

std::optional<SendOutcome> SessionOutput::refuse(Kind kind, std::uint64_t bytes, Sender sender) {
    while (stage_ == Stage::Open && !sender_.isBroken()) {
        if (fits(kind, bytes)) {
            return std::nullopt;
        }
        retry();
        if (fits(kind, bytes)) {
            return std::nullopt;
        }
        // What is larger than the limit has room never.
        if (bytes <= settings_->maxQueuedBytes) {
            // What waits for the end of a message in pieces has room no sooner, however little can be sent.
            (mustStayBehind(kind) ? isDrainDueBehind_ : isDrainDue_) = true;
        }
        switch (settings_->queuePolicy) {
        case Policy::Close:
            giveUp();
            break;
        case Policy::DropOldest:
            return dropUntilFits(kind, bytes) ? std::nullopt : std::optional(SendOutcome{WebSocketSend::Full, false});
        case Policy::Wait:
            if (mayExceed(kind, sender)) {
                isPaused_ = true;
                return std::nullopt;
            }
            if (!mayWait(kind, bytes, sender)) {
                return SendOutcome{WebSocketSend::Full, false};
            }
            ++waiting_;
            room_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
            --waiting_;
            break;
        }
    }
    return SendOutcome{WebSocketSend::Closed, !isOwn(sender)};
}

bool SessionOutput::fits(Kind kind, std::uint64_t bytes) const {
    // What waits for the end of a message in pieces must not keep the pieces from leaving.
    const OutgoingQueue& queue = sender_.queue();
    const std::uint64_t used = kind == Kind::Piece ? queue.sendableLoad() : queue.load();
    const std::uint64_t most = settings_->maxQueuedBytes;
    return used <= most && bytes <= most - used;
}

bool SessionOutput::dropUntilFits(Kind kind, std::uint64_t bytes) {
    if (sender_.queue().undroppableLoad() + bytes > settings_->maxQueuedBytes) {
        return false;
    }
    while (!fits(kind, bytes)) {
        if (!sender_.queue().dropOldestMessage(kind == Kind::Message)) {
            return false;
        }
    }
    return true;
}

bool SessionOutput::mayExceed(Kind kind, Sender sender) const {
    return isOwn(sender) && !mustStayBehind(kind) && sender_.queue().sendableLoad() <= settings_->maxQueuedBytes;
}

bool SessionOutput::mayWait(Kind kind, std::uint64_t bytes, Sender sender) const {
    return sender == Sender::Outsider && !mustStayBehind(kind) && bytes <= settings_->maxQueuedBytes;
}

bool SessionOutput::mustStayBehind(Kind kind) const {
    return kind == Kind::Message && sender_.queue().isMessageOpen();
}

void SessionOutput::giveUp() {
    const EncodedFrame frame = encodeClose(CloseCode::TryAgainLater, {});
    sender_.queue().dropUnsent();
    try {
        beginClosing(frame, CloseCode::TryAgainLater);
    } catch (...) {
        sender_.breakOff();
    }
}

void SessionOutput::beginClosing(const EncodedFrame& frame, std::uint16_t code) {
    sender_.queue().addClose(frame);
    stage_ = Stage::Closing;
    closeCode_ = code;
    closingSinceMs_ = qlSystemUtils::GetTimeBaseMs();
    room_.wakeAll();
}

void SessionOutput::retry() {
    const std::uint64_t before = sender_.queue().bytes();
    sender_.retry();
    if (waiting_ > 0 && (sender_.queue().bytes() < before || sender_.isBroken())) {
        room_.wakeAll();
    }
}

SendOutcome SessionOutput::conclude(bool wasEmpty, Sender sender) {
    if (sender_.isBroken()) {
        return {WebSocketSend::Closed, !isOwn(sender)};
    }
    isDrainDue_ = isDrainDue_ || sender_.queue().sendableLoad() > half();
    const bool isWaiting = wasEmpty && !sender_.queue().isEmpty();
    const bool isDrained = isDrainDue_ && sender_.queue().sendableLoad() <= half();
    return {WebSocketSend::Queued, !isOwn(sender) && (isWaiting || isDrained)};
}

void SessionOutput::noteMessage() {
    if (settings_->idleTimeoutMs != 0) {
        messageMs_ = qlSystemUtils::GetTimeBaseMs();
    }
}

} // namespace ql::impl
