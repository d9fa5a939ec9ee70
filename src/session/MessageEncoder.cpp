#include "session/MessageEncoder.h"

#include "session/ByteBuffer.h"
#include "session/CloseCode.h"

#include <algorithm>
#include <array>

namespace ql::impl {

namespace {

/// Of what zlib compresses with.
constexpr int MinWindowBits = 9;

FrameType typeOf(bool isText) {
    return isText ? FrameType::Text : FrameType::Binary;
}

/// Nothing: the message goes as it is.
std::optional<EncodedFrame> compress(Deflater& deflater, bool isText, std::span<const unsigned char> payload) {
    ByteBuffer compressed;
    if (!deflater.compress(payload, compressed)) {
        return std::nullopt;
    }
    return EncodedFrame(typeOf(isText), true, compressed.bytes(), true);
}

} // namespace

EncodedFrame::EncodedFrame(FrameType type, bool isFinal, std::span<const unsigned char> payload, bool isCompressed) {
    std::array<unsigned char, MostHeaderBytesWritten> header{};
    const std::size_t headerBytes = writeFrameHeader(header, type, isFinal, payload.size(), isCompressed);
    size_ = headerBytes + payload.size();
    auto memory = std::make_shared_for_overwrite<unsigned char[]>(size_);
    std::copy_n(header.begin(), headerBytes, memory.get());
    std::ranges::copy(payload, memory.get() + headerBytes);
    memory_ = std::move(memory);
}

EncodedFrame encodeClose(std::uint16_t code, std::string_view reason) {
    if (code == CloseCode::None) {
        return {FrameType::Close, true, {}};
    }
    std::array<unsigned char, MostControlBytes> payload{static_cast<unsigned char>(code >> 8),
                                                        static_cast<unsigned char>(code & 0xFF)};
    std::ranges::copy(reason, payload.begin() + 2);
    return {FrameType::Close, true, std::span(payload).first(2 + reason.size())};
}

std::optional<EncodedFrame> compressShared(bool isText, std::span<const unsigned char> payload,
                                           const DeflateSettings& settings, int windowBits) {
    Deflater deflater(settings, windowBits, false);
    return compress(deflater, isText, payload);
}

MessageEncoder::MessageEncoder(const DeflateSettings& settings, const DeflateAgreement& agreement)
    : minBytes_(settings.minBytes) {
    if (agreement.serverWindowBits >= MinWindowBits) {
        windowBits_ = agreement.serverWindowBits;
        deflater_ = std::make_unique<Deflater>(settings, windowBits_, !agreement.serverNoContextTakeover);
    }
}

bool MessageEncoder::wouldCompress(std::size_t payloadBytes) const {
    return deflater_ && payloadBytes >= minBytes_;
}

EncodedFrame MessageEncoder::encode(bool isText, std::span<const unsigned char> payload) {
    std::optional<EncodedFrame> compressed;
    if (wouldCompress(payload.size())) {
        compressed = compress(*deflater_, isText, payload);
    }
    return compressed ? *compressed : EncodedFrame(typeOf(isText), true, payload);
}

void MessageEncoder::forgetContext() {
    if (deflater_) {
        deflater_->reset();
    }
}

} // namespace ql::impl
