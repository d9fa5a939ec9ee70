#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// As much of RFC 6455 as an echo and its client need.
namespace bench {

/// The key that every client of the benchmark sends, and the accept value that belongs to it.
inline constexpr const char* HandshakeKey = "dGhlIHNhbXBsZSBub25jZQ==";
inline constexpr const char* HandshakeAccept = "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=";

inline constexpr std::uint8_t OpcodeContinuation = 0;
inline constexpr std::uint8_t OpcodeText = 1;
inline constexpr std::uint8_t OpcodeBinary = 2;
inline constexpr std::uint8_t OpcodeClose = 8;
inline constexpr std::uint8_t OpcodePing = 9;
inline constexpr std::uint8_t OpcodePong = 10;

inline constexpr std::size_t MaxFrameHeaderBytes = 14;

using MaskKey = std::array<std::uint8_t, 4>;

struct FrameHeader {
    bool fin = false;
    std::uint8_t opcode = 0;
    bool masked = false;
    MaskKey key{};
    std::uint64_t payload = 0; ///< bytes
    std::size_t bytes = 0;     ///< of the header itself

    /// @return false when the header is not complete yet.
    bool parse(const std::uint8_t* data, std::size_t size);

    /// Writes the header and sets `bytes`.
    /// @param out room for MaxFrameHeaderBytes.
    void write(std::uint8_t* out);
};

/// Masks or unmasks in place. The key applies from the first byte on.
void applyMask(std::uint8_t* data, std::size_t size, const MaskKey& key);

} // namespace bench
