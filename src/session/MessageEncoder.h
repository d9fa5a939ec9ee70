// SPDX-License-Identifier: MIT
#pragma once

#include "session/DeflateOffer.h"
#include "session/Deflater.h"
#include "websocket/FrameHeader.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace ql::impl {

/// A whole frame as it goes out, in one piece of memory that all who send it share. Any thread.
class EncodedFrame {
public:
    EncodedFrame() = default;
    /// @throws std::bad_alloc
    EncodedFrame(FrameType type, bool isFinal, std::span<const unsigned char> payload, bool isCompressed = false);

    std::span<const unsigned char> bytes() const { return {memory_.get(), size_}; }

private:
    std::shared_ptr<const unsigned char[]> memory_;
    std::size_t size_ = 0;
};

/// A close frame.
/// @param code CloseCode::None for one without a payload.
/// @param reason at most 123 bytes of UTF-8.
EncodedFrame encodeClose(std::uint16_t code, std::string_view reason);

/// A message for connections that share it: compressed with reference to nothing but itself, with a window of 9 to 15
/// bits. Whoever sends it on a connection of its own MessageEncoder has to call forgetContext() there. Nothing: it
/// would not be shorter than what encodes it as it is.
std::optional<EncodedFrame> compressShared(bool isText, std::span<const unsigned char> payload,
                                           const DeflateSettings& settings, int windowBits);

/// Encodes the messages of one connection, in the order in which they are sent. One thread at a time.
class MessageEncoder {
public:
    /// For a connection without compression.
    MessageEncoder() = default;
    MessageEncoder(const DeflateSettings& settings, const DeflateAgreement& agreement);

    /// Whether encode() would try to compress a message of that size. If not, the header of writeFrameHeader() and the
    /// payload itself are the same as what encode() makes of it.
    bool wouldCompress(std::size_t payloadBytes) const;

    /// The window of what it compresses, for compressShared(); 0 when it never compresses.
    int windowBits() const { return windowBits_; }

    /// @throws std::bad_alloc
    EncodedFrame encode(bool isText, std::span<const unsigned char> payload);

    /// The peer has got a compressed message that this object has not encoded: later ones must not refer to earlier
    /// ones.
    void forgetContext();

private:
    std::size_t minBytes_ = 0;
    int windowBits_ = 0;
    std::unique_ptr<Deflater> deflater_;
};

} // namespace ql::impl
