#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What a client sends and what it understands, written independently of the library's codec.
namespace wstest {

using Bytes = std::vector<unsigned char>;
using MaskKey = std::array<unsigned char, 4>;

constexpr MaskKey SomeKey = {0x37, 0xFA, 0x21, 0x3D};

enum class LengthForm { Shortest, Bits16, Bits64 };

/// A masked frame. `firstByte` holds FIN, the reserved bits and the opcode.
Bytes clientFrame(unsigned char firstByte, const Bytes& payload, LengthForm form = LengthForm::Shortest,
                  const MaskKey& key = SomeKey);

/// The header alone, for a payload of `length` bytes that need not exist.
Bytes clientHeader(unsigned char firstByte, std::uint64_t length, LengthForm form = LengthForm::Shortest,
                   const MaskKey& key = SomeKey);

/// A frame as a server sends it.
struct ServerFrame {
    bool fin = false;
    unsigned opcode = 0;
    Bytes header;
    Bytes payload;
};

/// Bytes of a server frame, as its header announces them.
struct FrameSizes {
    std::size_t header = 0;
    std::uint64_t payload = 0;
};

/// Of the frame that begins at `at`. Nothing when the stream ends inside its header.
std::optional<FrameSizes> frameSizes(const Bytes& stream, std::size_t at = 0);

/// Splits a stream that must hold whole unmasked frames and nothing else; fails the test otherwise.
std::vector<ServerFrame> parseServerFrames(const Bytes& stream);

/// `size` bytes that repeat with a prime period, so that shifts show.
Bytes pattern(std::size_t size);

Bytes toBytes(const std::string& text);
std::string toText(const Bytes& bytes);
Bytes concatenate(const std::vector<Bytes>& parts);

} // namespace wstest
