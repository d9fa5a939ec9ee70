#include "websocket/FrameHeader.h"

#include "websocket/FrameBits.h"

#include <algorithm>

namespace ql::impl {

namespace {

constexpr unsigned OpcodeClassBits = 0x03;
constexpr unsigned RejectedClass = 3;

constexpr std::size_t SmallestHeader = FixedBytes + std::tuple_size_v<MaskKey>;

void writeBigEndian(std::span<unsigned char> bytes, std::uint64_t value) {
    for (std::size_t i = bytes.size(); i > 0; --i) {
        bytes[i - 1] = static_cast<unsigned char>(value & 0xFF);
        value >>= 8;
    }
}

} // namespace

FrameHeader readFrameHeader(std::span<const unsigned char> front, std::uint64_t available, bool isMessageOpen) {
    FrameHeader header;
    if (available < SmallestHeader) {
        return header;
    }

    header.isFinal = (front[0] & FinBit) != 0;
    const unsigned opcodeClass = front[0] & OpcodeClassBits;
    const bool isContinuation = opcodeClass == static_cast<unsigned>(FrameType::Continuation);
    if (opcodeClass == RejectedClass || (isContinuation && !isMessageOpen)) {
        header.status = FrameStatus::Invalid;
        return header;
    }
    if (!isContinuation) {
        header.isBinary = opcodeClass == static_cast<unsigned>(FrameType::Binary);
    }

    const unsigned lengthCode = front[1] & LengthBits;
    const std::size_t keyAt = FixedBytes + lengthBytes(lengthCode);
    if (available < keyAt) {
        return header;
    }
    header.payloadBytes = keyAt == FixedBytes ? lengthCode : readBigEndian(front.first(keyAt).subspan(FixedBytes));

    // Never header + payload: with a length near 2^64 that sum is a small number.
    const std::size_t headerBytes = keyAt + header.maskKey.size();
    if (available < headerBytes || *header.payloadBytes > available - headerBytes) {
        return header;
    }
    std::ranges::copy(front.subspan(keyAt, header.maskKey.size()), header.maskKey.begin());
    header.headerBytes = headerBytes;
    header.status = FrameStatus::Whole;
    return header;
}

std::size_t writeFrameHeader(std::span<unsigned char, MostHeaderBytesWritten> out, FrameType type, bool isFinal,
                             std::uint64_t payloadBytes, bool isCompressed) {
    const unsigned lengthCode = payloadBytes < LengthIs16Bits ? static_cast<unsigned>(payloadBytes)
                                : payloadBytes <= 0xFFFF      ? LengthIs16Bits
                                                              : LengthIs64Bits;
    out[0] = static_cast<unsigned char>(static_cast<unsigned>(type) | (isFinal ? FinBit : 0) |
                                        (isCompressed ? CompressedBit : 0));
    out[1] = static_cast<unsigned char>(lengthCode);
    writeBigEndian(out.subspan(FixedBytes, lengthBytes(lengthCode)), payloadBytes);
    return FixedBytes + lengthBytes(lengthCode);
}

} // namespace ql::impl
