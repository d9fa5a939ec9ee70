// SPDX-License-Identifier: MIT
#include "app/testing/FrameText.h"

#include "app/kernel/Throw.h"

#include <array>
#include <cstddef>

namespace vireo::impl {

namespace {

constexpr unsigned int FinalBit = 0x80;
constexpr unsigned int MaskBit = 0x80;
/// Lengths from here on stand in two bytes, or in eight.
constexpr std::size_t TwoByteLength = 126;
constexpr std::size_t EightByteLength = 127;

unsigned int byteAt(const std::string& bytes, std::size_t index) {
    return static_cast<unsigned char>(bytes[index]);
}

std::uint64_t numberAt(const std::string& bytes, std::size_t begin, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i) {
        number = number << 8U | byteAt(bytes, begin + i);
    }
    return number;
}

void appendNumber(std::string& bytes, std::uint64_t number, std::size_t size) {
    for (std::size_t i = size; i > 0; --i) {
        bytes += static_cast<char>(number >> (8 * (i - 1)) & 0xffU);
    }
}

void appendLength(std::string& bytes, std::size_t length) {
    if (length < TwoByteLength) {
        appendNumber(bytes, MaskBit | length, 1);
    } else if (length <= 0xffff) {
        appendNumber(bytes, MaskBit | TwoByteLength, 1);
        appendNumber(bytes, length, 2);
    } else {
        appendNumber(bytes, MaskBit | EightByteLength, 1);
        appendNumber(bytes, length, 8);
    }
}

} // namespace

std::optional<FrameText> FrameText::Take(std::string& bytes) {
    if (bytes.size() < 2) {
        return std::nullopt;
    }
    const unsigned int first = byteAt(bytes, 0);
    const unsigned int second = byteAt(bytes, 1);
    if ((first & 0x70U) != 0 || (second & MaskBit) != 0) {
        throwRuntimeError("the server sent a frame that no server may send");
    }
    const std::size_t lengthBytes = second == TwoByteLength ? 2 : second == EightByteLength ? 8 : 0;
    const std::size_t begin = 2 + lengthBytes;
    if (bytes.size() < begin) {
        return std::nullopt;
    }
    const std::uint64_t length = lengthBytes == 0 ? second : numberAt(bytes, 2, lengthBytes);
    if (bytes.size() - begin < length) {
        return std::nullopt;
    }
    FrameText frame;
    frame.kind = static_cast<Kind>(first & 0x0fU);
    frame.isFinal = (first & FinalBit) != 0;
    frame.payload = bytes.substr(begin, static_cast<std::size_t>(length));
    bytes.erase(0, begin + static_cast<std::size_t>(length));
    return frame;
}

std::string FrameText::toBytes() const {
    // What the mask is for, proxies that take payloads for requests, is not between a test and its server.
    constexpr std::array<char, 4> Mask{0x37, 0x21, 0x5a, 0x0d};
    std::string bytes;
    appendNumber(bytes, (isFinal ? FinalBit : 0U) | static_cast<unsigned int>(kind), 1);
    appendLength(bytes, payload.size());
    bytes.append(Mask.data(), Mask.size());
    for (std::size_t i = 0; i < payload.size(); ++i) {
        bytes += static_cast<char>(payload[i] ^ Mask[i % Mask.size()]);
    }
    return bytes;
}

} // namespace vireo::impl
