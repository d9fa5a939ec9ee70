// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// The header of a frame, in and out. Reading is narrower than RFC 6455 on purpose: of the opcode only the two low bits
/// count, so that a close is a continuation, a ping is text and a pong is binary; the reserved bits and MASK are not
/// looked at; a mask key is taken to be there always.
namespace ql::impl {

/// Bytes of the largest header that is read.
constexpr std::size_t MostHeaderBytesRead = 14;
/// Bytes of the largest header that is written.
constexpr std::size_t MostHeaderBytesWritten = 10;

using MaskKey = std::array<unsigned char, 4>;

enum class FrameStatus {
    Incomplete, ///< more bytes are needed
    Invalid,    ///< not accepted, however it goes on
    Whole,      ///< header and payload are there
};

/// A frame's header, as far as the bytes that are there tell.
struct FrameHeader {
    FrameStatus status = FrameStatus::Incomplete;
    /// Empty with fewer than 6 bytes.
    std::optional<bool> isFinal;
    /// Empty also for a continuation, which has no type of its own.
    std::optional<bool> isBinary;
    /// Empty while its field is not there.
    std::optional<std::uint64_t> payloadBytes;
    /// Of a whole frame.
    std::uint64_t headerBytes = 0;
    /// Of a whole frame.
    MaskKey maskKey{};
};

/// Reads the header of a client's frame.
/// @param front the first bytes of the frame: all that are there, or MostHeaderBytesRead of them.
/// @param available how many bytes are there, those behind `front` included.
/// @param isMessageOpen whether a continuation has a message to continue.
FrameHeader readFrameHeader(std::span<const unsigned char> front, std::uint64_t available, bool isMessageOpen);

/// Bytes of the largest payload that a ping, a pong or a close may have.
constexpr std::size_t MostControlBytes = 125;

enum class FrameType : unsigned char { Continuation = 0, Text = 1, Binary = 2, Close = 8, Ping = 9, Pong = 10 };

/// Writes the header of a server's frame, with the shortest form of the length and without a mask key.
/// @param isCompressed sets RSV1, as the first frame of a compressed message has it.
/// @return its size; the rest of `out` is left as it was.
std::size_t writeFrameHeader(std::span<unsigned char, MostHeaderBytesWritten> out, FrameType type, bool isFinal,
                             std::uint64_t payloadBytes, bool isCompressed = false);

} // namespace ql::impl
