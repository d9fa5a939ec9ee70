#include "session/FrameDecoder.h"

#include "session/CloseCode.h"
#include "session/PayloadBytes.h"
#include "websocket/FrameBits.h"
#include "websocket/Unmask.h"

#include <algorithm>
#include <limits>

namespace ql::impl {

namespace {

constexpr std::size_t CloseCodeBytes = 2;
/// Room for what is decompressed at a time.
constexpr std::size_t InflateBytes = 16384;
/// What a compressed message's payload may have beyond twice the message's limit.
constexpr std::uint64_t CompressedSlackBytes = 65536;

constexpr std::string_view TooBigText = "message too big";
constexpr std::string_view NoUtf8Text = "text that is not UTF-8";

bool isControl(FrameType type) {
    return type == FrameType::Close || type == FrameType::Ping || type == FrameType::Pong;
}

bool isKnown(FrameType type) {
    return type == FrameType::Continuation || type == FrameType::Text || type == FrameType::Binary || isControl(type);
}

std::size_t clipped(std::uint64_t size, std::size_t most) {
    return size < most ? static_cast<std::size_t>(size) : most;
}

/// What does not compress becomes a little longer, and flushes may cut it into many blocks. Far more than that is sent
/// only to keep the decompressor busy with blocks that give nothing.
std::uint64_t mostCompressedBytes(std::uint64_t maxMessageBytes) {
    constexpr std::uint64_t Most = std::numeric_limits<std::uint64_t>::max();
    return maxMessageBytes > (Most - CompressedSlackBytes) / 2 ? Most : 2 * maxMessageBytes + CompressedSlackBytes;
}

std::optional<FrameDecoder::Result> outcomeOf(FrameSink::Next next) {
    return next == FrameSink::Next::Stop ? std::optional(FrameDecoder::Result::Stopped) : std::nullopt;
}

} // namespace

FrameDecoder::FrameDecoder(const FrameDecoderSettings& settings)
    : maxMessageBytes_(settings.maxMessageBytes), inPieces_(settings.inPieces) {
    if (settings.deflate) {
        inflater_.emplace(settings.deflate->clientWindowBits, !settings.deflate->clientNoContextTakeover);
    }
}

FrameDecoder::Result FrameDecoder::feed(std::span<unsigned char>& input, FrameSink& sink) {
    Outcome outcome;
    while (!outcome) {
        switch (stage_) {
        case Stage::Header:
            outcome = takeHeader(input);
            break;
        case Stage::Payload:
            outcome = takePayload(input, sink);
            break;
        case Stage::Tail:
            outcome = takeTail(sink);
            break;
        case Stage::Closed:
            outcome = Result::Closed;
            break;
        case Stage::Failed:
            outcome = Result::Failed;
            break;
        }
    }
    return *outcome;
}

std::span<unsigned char> FrameDecoder::directRoom() {
    const bool isCollected = !isControl(type_) && !isCompressed_ && !inPieces_;
    if (stage_ != Stage::Payload || !isCollected || missingBytes() < DirectBytes) {
        return {};
    }
    const std::span<unsigned char> room = message_.room(DirectBytes, expectedBytes());
    return room.first(clipped(missingBytes(), room.size()));
}

FrameDecoder::Result FrameDecoder::received(std::size_t count, FrameSink& sink) {
    const std::span<unsigned char> part = message_.room(count, count).first(count);
    unmaskNext(part, part);
    taken(count);
    return collected(count, sink).value_or(Result::NeedsMore);
}

// ---- Headers ----

/// Byte for byte as far as something can be told, so that a wrong one is refused at its first wrong byte.
FrameDecoder::Outcome FrameDecoder::takeHeader(std::span<unsigned char>& input) {
    while (stage_ == Stage::Header) {
        const std::size_t lengthEnd = FixedBytes + lengthBytes(header_[1] & LengthBits);
        const std::size_t stepEnd = headerTaken_ < FixedBytes  ? headerTaken_ + 1
                                    : headerTaken_ < lengthEnd ? lengthEnd
                                                               : lengthEnd + maskKey_.size();
        const std::size_t count = (std::min)(stepEnd - headerTaken_, input.size());
        std::ranges::copy(input.first(count), header_.begin() + static_cast<std::ptrdiff_t>(headerTaken_));
        input = input.subspan(count);
        headerTaken_ += count;
        if (headerTaken_ < stepEnd) {
            return Result::NeedsMore;
        }
        if (headerTaken_ == 1) {
            checkFirstByte();
        } else if (headerTaken_ == FixedBytes) {
            checkSecondByte();
        } else if (headerTaken_ == lengthEnd) {
            checkLength();
        } else {
            beginFrame();
        }
    }
    return std::nullopt;
}

void FrameDecoder::checkFirstByte() {
    const unsigned first = header_[0];
    type_ = static_cast<FrameType>(first & OpcodeBits);
    isFinal_ = (first & FinBit) != 0;
    const bool isCompressed = (first & CompressedBit) != 0;
    const bool beginsMessage = type_ == FrameType::Text || type_ == FrameType::Binary;
    if ((first & ReservedBits) != 0 || (isCompressed && !(inflater_ && beginsMessage))) {
        fail(CloseCode::ProtocolError, "a reserved bit is set");
    } else if (!isKnown(type_)) {
        fail(CloseCode::ProtocolError, "unknown opcode");
    } else if (isControl(type_) && !isFinal_) {
        fail(CloseCode::ProtocolError, "fragment of a control frame");
    } else if (type_ == FrameType::Continuation && !isMessageOpen_) {
        fail(CloseCode::ProtocolError, "continuation of no message");
    } else if (beginsMessage && isMessageOpen_) {
        fail(CloseCode::ProtocolError, "message inside a message");
    } else if (beginsMessage) {
        isMessageOpen_ = true;
        isText_ = type_ == FrameType::Text;
        isCompressed_ = isCompressed;
        announcedBytes_ = 0;
        inflatedBytes_ = 0;
    }
}

void FrameDecoder::checkSecondByte() {
    const unsigned lengthCode = header_[1] & LengthBits;
    if ((header_[1] & MaskBit) == 0) {
        fail(CloseCode::ProtocolError, "frame without a mask");
    } else if (isControl(type_) && lengthCode > MostControlBytes) {
        fail(CloseCode::ProtocolError, "control frame too long");
    } else if (lengthBytes(lengthCode) == 0) {
        announce(lengthCode);
    }
}

void FrameDecoder::checkLength() {
    const std::uint64_t length = readBigEndian(std::span(header_).first(headerTaken_).subspan(FixedBytes));
    const bool isIn16Bits = headerTaken_ == FixedBytes + 2;
    if (length < (isIn16Bits ? LengthIs16Bits : 0x10000) || length >> 63 != 0) {
        fail(CloseCode::ProtocolError, "invalid length");
    } else {
        announce(length);
    }
}

void FrameDecoder::announce(std::uint64_t payloadBytes) {
    payloadBytes_ = payloadBytes;
    if (isControl(type_)) {
        return;
    }
    const std::uint64_t most = isCompressed_ ? mostCompressedBytes(maxMessageBytes_) : maxMessageBytes_;
    if (payloadBytes > most - announcedBytes_) {
        fail(CloseCode::TooBig, TooBigText);
    } else {
        announcedBytes_ += payloadBytes;
    }
}

void FrameDecoder::beginFrame() {
    std::copy_n(header_.begin() + static_cast<std::ptrdiff_t>(headerTaken_ - maskKey_.size()), maskKey_.size(),
                maskKey_.begin());
    headerTaken_ = 0;
    payloadTaken_ = 0;
    payloadUnmasked_ = 0;
    stage_ = Stage::Payload;
}

// ---- Payloads ----

FrameDecoder::Outcome FrameDecoder::takePayload(std::span<unsigned char>& input, FrameSink& sink) {
    if (input.empty() && missingBytes() > 0) {
        return Result::NeedsMore;
    }
    const std::span<unsigned char> part = input.first(clipped(missingBytes(), input.size()));
    if (!isControl(type_) && isCompressed_) {
        return takeCompressed(input, part, sink);
    }
    input = input.subspan(part.size());
    taken(part.size());
    return isControl(type_) ? takeControl(part, sink) : takePlain(part, sink);
}

FrameDecoder::Outcome FrameDecoder::takeControl(std::span<unsigned char> part, FrameSink& sink) {
    const bool isWhole = missingBytes() == 0;
    if (isWhole && control_.isEmpty()) {
        unmaskNext(part, part);
        return deliverControl(part, sink);
    }
    unmaskNext(control_.room(part.size(), MostControlBytes).first(part.size()), part);
    control_.added(part.size());
    if (!isWhole) {
        return std::nullopt;
    }
    const Outcome outcome = deliverControl(control_.bytes(), sink);
    control_.release();
    return outcome;
}

FrameDecoder::Outcome FrameDecoder::takePlain(std::span<unsigned char> part, FrameSink& sink) {
    const bool isLast = isLastFrameTaken();
    if (inPieces_ || (isLast && message_.isEmpty())) {
        unmaskNext(part, part);
        return isTextValid(part, isLast) ? deliver(part, isLast, sink) : Result::Failed;
    }
    unmaskNext(message_.room(part.size(), part.size() + expectedBytes()).first(part.size()), part);
    return collected(part.size(), sink);
}

/// @param count bytes that stand unmasked behind those of the message.
FrameDecoder::Outcome FrameDecoder::collected(std::size_t count, FrameSink& sink) {
    const bool isLast = isLastFrameTaken();
    const std::span<unsigned char> part = message_.room(count, count).first(count);
    message_.added(count);
    return isTextValid(part, isLast) ? deliver(message_.bytes(), isLast, sink) : Result::Failed;
}

FrameDecoder::Outcome FrameDecoder::takeCompressed(std::span<unsigned char>& input, std::span<unsigned char> part,
                                                   FrameSink& sink) {
    const std::span<unsigned char> masked = part.subspan(static_cast<std::size_t>(payloadUnmasked_ - payloadTaken_));
    unmaskNext(masked, masked);

    std::span<const unsigned char> rest = part;
    std::span<unsigned char> room = inflateRoom();
    const std::size_t roomBytes = room.size();
    const Inflater::Status status = inflater_->inflate(rest, room);
    input = input.subspan(part.size() - rest.size());
    payloadTaken_ += part.size() - rest.size();
    if (missingBytes() == 0 && status == Inflater::Status::InputUsed) {
        stage_ = isFinal_ ? Stage::Tail : Stage::Header;
    }
    return inflated(status, roomBytes - room.size(), false, sink);
}

FrameDecoder::Outcome FrameDecoder::takeTail(FrameSink& sink) {
    std::span<unsigned char> room = inflateRoom();
    const std::size_t roomBytes = room.size();
    const Inflater::Status status = inflater_->finish(room);
    const bool isLast = status == Inflater::Status::InputUsed;
    if (isLast) {
        stage_ = Stage::Header;
    }
    return inflated(status, roomBytes - room.size(), isLast, sink);
}

/// One byte more than the message may have, so that it shows when there is one.
std::span<unsigned char> FrameDecoder::inflateRoom() {
    const std::span<unsigned char> room = message_.room(1, InflateBytes);
    return room.first(clipped(maxMessageBytes_ - inflatedBytes_, room.size() - 1) + 1);
}

/// @param count bytes that have been decompressed behind those of the message.
FrameDecoder::Outcome FrameDecoder::inflated(Inflater::Status status, std::size_t count, bool isLast, FrameSink& sink) {
    const std::span<unsigned char> part = message_.room(count, count).first(count);
    message_.added(count);
    inflatedBytes_ += count;
    if (!isTextValid(part, isLast)) {
        return Result::Failed;
    }
    if (inflatedBytes_ > maxMessageBytes_) {
        return fail(CloseCode::TooBig, TooBigText);
    }
    if (status == Inflater::Status::Invalid) {
        return fail(CloseCode::InvalidPayload, "invalid compressed data");
    }
    return deliver(message_.bytes(), isLast, sink);
}

// ---- To the sink ----

FrameDecoder::Outcome FrameDecoder::deliver(std::span<const unsigned char> data, bool isLast, FrameSink& sink) {
    if (!isLast && (!inPieces_ || data.empty())) {
        return std::nullopt;
    }
    isMessageOpen_ = !isLast;
    const FrameSink::Next next = inPieces_ ? sink.onPiece(isText_, data, isLast) : sink.onMessage(isText_, data);
    if (isLast) {
        message_.release();
    } else {
        message_.clear();
    }
    return outcomeOf(next);
}

FrameDecoder::Outcome FrameDecoder::deliverControl(std::span<const unsigned char> payload, FrameSink& sink) {
    if (type_ == FrameType::Close) {
        return deliverClose(payload, sink);
    }
    return outcomeOf(type_ == FrameType::Ping ? sink.onPing(payload) : sink.onPong(payload));
}

FrameDecoder::Result FrameDecoder::deliverClose(std::span<const unsigned char> payload, FrameSink& sink) {
    std::uint16_t code = CloseCode::None;
    std::string_view reason;
    if (!payload.empty()) {
        if (payload.size() < CloseCodeBytes) {
            return fail(CloseCode::ProtocolError, "half a close code");
        }
        code = static_cast<std::uint16_t>(readBigEndian(payload.first(CloseCodeBytes)));
        reason = textOf(payload.subspan(CloseCodeBytes));
        if (!CloseCode::mayBeInFrame(code)) {
            return fail(CloseCode::ProtocolError, "invalid close code");
        }
        if (findInvalidUtf8(reason) != std::string_view::npos) {
            return fail(CloseCode::InvalidPayload, NoUtf8Text);
        }
    }
    stage_ = Stage::Closed;
    sink.onClose(code, reason);
    return Result::Closed;
}

// ---- What they share ----

/// How many bytes of the frame are still to come, as a hint.
std::size_t FrameDecoder::expectedBytes() const {
    return clipped(missingBytes(), std::numeric_limits<std::size_t>::max() / 2);
}

/// Of a frame whose bytes are used as they come.
void FrameDecoder::taken(std::size_t count) {
    payloadTaken_ += count;
    if (missingBytes() == 0) {
        stage_ = Stage::Header;
    }
}

void FrameDecoder::unmaskNext(std::span<unsigned char> out, std::span<const unsigned char> in) {
    unmask(out.data(), in.data(), in.size(), maskKey_.data(),
           static_cast<std::size_t>(payloadUnmasked_ % maskKey_.size()));
    payloadUnmasked_ += in.size();
}

bool FrameDecoder::isTextValid(std::span<const unsigned char> part, bool isLast) {
    const bool isValid = !isText_ || (utf8_.feed(part) && (!isLast || utf8_.isComplete()));
    if (!isValid) {
        fail(CloseCode::InvalidPayload, NoUtf8Text);
    }
    return isValid;
}

FrameDecoder::Result FrameDecoder::fail(std::uint16_t code, std::string_view text) {
    stage_ = Stage::Failed;
    failureCode_ = code;
    failureText_ = text;
    return Result::Failed;
}

} // namespace ql::impl
