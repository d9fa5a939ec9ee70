// SPDX-License-Identifier: MIT
#pragma once

#include "frame/Utf8.h"
#include "session/ByteBuffer.h"
#include "session/DeflateOffer.h"
#include "session/Inflater.h"
#include "websocket/FrameHeader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace ql::impl {

/// Gets what a client sends, in order. What is given is valid during the call only.
class FrameSink {
public:
    enum class Next {
        GoOn,
        Stop, ///< the decoder returns, and goes on when it is called again
    };

    /// A whole message. Not with FrameDecoderSettings::inPieces.
    virtual Next onMessage(bool isText, std::span<const unsigned char> payload) = 0;
    /// The next piece of a message. Only with FrameDecoderSettings::inPieces. It is empty only at the end of a message,
    /// and may end inside a UTF-8 sequence, unless it is the last.
    virtual Next onPiece(bool isText, std::span<const unsigned char> piece, bool isLast) = 0;
    virtual Next onPing(std::span<const unsigned char> payload) = 0;
    virtual Next onPong(std::span<const unsigned char> payload) = 0;
    /// Nothing comes after it. @param code CloseCode::None when the frame has none.
    virtual void onClose(std::uint16_t code, std::string_view reason) = 0;

protected:
    ~FrameSink() = default;
};

struct FrameDecoderSettings {
    /// Of a message, decompressed. What came for it compressed may have twice as many and 64 KiB.
    std::uint64_t maxMessageBytes = 0;
    /// Messages are handed over as they come and not collected.
    bool inPieces = false;
    /// What was agreed on; nothing: a compressed message is a protocol error.
    std::optional<DeflateAgreement> deflate;
};

/// Reads a client's frames as strictly as RFC 6455 and RFC 7692 have it. Bytes in, messages and control frames out; no
/// socket, no lock. Between messages it holds no memory but the decompressor's window, and that only with context
/// takeover.
///
///     Header --> Payload --> (a compressed message's last frame: Tail) --> Header
///        any of them --> Failed;  a close frame --> Closed
///
/// A callback that throws ends it: it is not to be called again.
class FrameDecoder {
public:
    enum class Result {
        NeedsMore, ///< all bytes are taken
        Stopped,   ///< the sink wanted it; call feed() again, also when no bytes are left
        Closed,    ///< the close frame has come; what is left is not looked at
        Failed,    ///< the client broke a rule: see failureCode(); what is left is not looked at
    };

    explicit FrameDecoder(const FrameDecoderSettings& settings);

    /// Takes bytes from the front of `input`, which it changes: payloads are unmasked where they stand, and a whole
    /// message that came uncompressed in one frame is given to the sink from there. After Stopped it has to be called
    /// with what it has left, unchanged, and whatever has come behind.
    /// @throws std::bad_alloc
    Result feed(std::span<unsigned char>& input, FrameSink& sink);

    /// Room that the next bytes may be received into directly, which spares a copy: in the middle of a long frame, once
    /// feed() has returned NeedsMore. Empty: receive elsewhere, for feed(). At least DirectBytes otherwise.
    /// @throws std::bad_alloc
    std::span<unsigned char> directRoom();

    /// The first `count` bytes of the room that directRoom() gave have been received.
    Result received(std::size_t count, FrameSink& sink);

    /// After Failed: the close code to send.
    std::uint16_t failureCode() const { return failureCode_; }
    /// After Failed: what was wrong, short enough for a close frame.
    std::string_view failureText() const { return failureText_; }

    /// What is worth a receive of its own.
    static constexpr std::size_t DirectBytes = 65536;

private:
    enum class Stage { Header, Payload, Tail, Closed, Failed };

    /// What feed() returns after a step; nothing: it goes on.
    using Outcome = std::optional<Result>;

    Outcome takeHeader(std::span<unsigned char>& input);
    void checkFirstByte();
    void checkSecondByte();
    void checkLength();
    void announce(std::uint64_t payloadBytes);
    void beginFrame();

    Outcome takePayload(std::span<unsigned char>& input, FrameSink& sink);
    Outcome takeControl(std::span<unsigned char> part, FrameSink& sink);
    Outcome takePlain(std::span<unsigned char> part, FrameSink& sink);
    Outcome collected(std::size_t count, FrameSink& sink);
    Outcome takeCompressed(std::span<unsigned char>& input, std::span<unsigned char> part, FrameSink& sink);
    Outcome takeTail(FrameSink& sink);
    std::span<unsigned char> inflateRoom();
    Outcome inflated(Inflater::Status status, std::size_t count, bool isLast, FrameSink& sink);

    Outcome deliver(std::span<const unsigned char> data, bool isLast, FrameSink& sink);
    Outcome deliverControl(std::span<const unsigned char> payload, FrameSink& sink);
    Result deliverClose(std::span<const unsigned char> payload, FrameSink& sink);

    std::uint64_t missingBytes() const { return payloadBytes_ - payloadTaken_; }
    std::size_t expectedBytes() const;
    bool isLastFrameTaken() const { return isFinal_ && missingBytes() == 0; }
    void taken(std::size_t count);
    void unmaskNext(std::span<unsigned char> out, std::span<const unsigned char> in);
    bool isTextValid(std::span<const unsigned char> part, bool isLast);
    Result fail(std::uint16_t code, std::string_view text);

    std::uint64_t maxMessageBytes_;
    bool inPieces_;
    std::optional<Inflater> inflater_;

    Stage stage_ = Stage::Header;

    // The frame.
    std::array<unsigned char, MostHeaderBytesRead> header_{};
    std::size_t headerTaken_ = 0;
    FrameType type_ = FrameType::Continuation;
    bool isFinal_ = false;
    MaskKey maskKey_{};
    std::uint64_t payloadBytes_ = 0;
    std::uint64_t payloadTaken_ = 0;
    /// More than are taken when the sink has stopped the decompressor midway.
    std::uint64_t payloadUnmasked_ = 0;
    /// Of a control frame that comes in pieces.
    ByteBuffer control_;

    // The message.
    bool isMessageOpen_ = false;
    bool isText_ = false;
    bool isCompressed_ = false;
    /// The payloads of its frames, as their headers have them.
    std::uint64_t announcedBytes_ = 0;
    /// What it has given so far, if it is compressed.
    std::uint64_t inflatedBytes_ = 0;
    /// A text that has ended leaves it as it was at first.
    Utf8Validator utf8_;
    /// What of it is to be handed over: as much as has come, or, in pieces, what is decompressed at a time.
    ByteBuffer message_;

    std::uint16_t failureCode_ = 0;
    std::string_view failureText_;
};

} // namespace ql::impl
