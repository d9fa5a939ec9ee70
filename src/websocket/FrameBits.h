// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Where things stand in the header of a frame (RFC 6455 section 5.2).
namespace ql::impl {

// Of the first byte.
inline constexpr unsigned FinBit = 0x80;
inline constexpr unsigned CompressedBit = 0x40;
inline constexpr unsigned ReservedBits = 0x30;
inline constexpr unsigned OpcodeBits = 0x0F;

// Of the second byte.
inline constexpr unsigned MaskBit = 0x80;
inline constexpr unsigned LengthBits = 0x7F;
inline constexpr unsigned LengthIs16Bits = 126;
inline constexpr unsigned LengthIs64Bits = 127;

/// What stands before the longer forms of the length, or before the mask key.
inline constexpr std::size_t FixedBytes = 2;

/// Bytes of the length behind the fixed ones.
constexpr std::size_t lengthBytes(unsigned lengthCode) {
    return lengthCode == LengthIs16Bits ? 2 : lengthCode == LengthIs64Bits ? 8 : 0;
}

constexpr std::uint64_t readBigEndian(std::span<const unsigned char> bytes) {
    std::uint64_t value = 0;
    for (const unsigned char byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

} // namespace ql::impl
