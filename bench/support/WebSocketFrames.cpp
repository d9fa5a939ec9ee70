#include "support/WebSocketFrames.h"

#include <cstring>

namespace bench {

namespace {

constexpr std::uint8_t FinBit = 0x80;
constexpr std::uint8_t MaskBit = 0x80;
constexpr std::uint8_t Length16 = 126;
constexpr std::uint8_t Length64 = 127;

} // namespace

bool FrameHeader::parse(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return false;
    }
    fin = (data[0] & FinBit) != 0;
    opcode = data[0] & 0x0FU;
    masked = (data[1] & MaskBit) != 0;
    const std::uint8_t length = data[1] & 0x7FU;
    const std::size_t extended = length == Length64 ? 8 : length == Length16 ? 2 : 0;
    bytes = 2 + extended + (masked ? key.size() : 0);
    if (size < bytes) {
        return false;
    }
    payload = extended == 0 ? length : 0;
    for (std::size_t i = 0; i < extended; ++i) {
        payload = payload << 8U | data[2 + i];
    }
    if (masked) {
        std::memcpy(key.data(), data + 2 + extended, key.size());
    }
    return true;
}

void FrameHeader::write(std::uint8_t* out) {
    out[0] = static_cast<std::uint8_t>((fin ? FinBit : 0) | opcode);
    const std::size_t extended = payload > 0xFFFF ? 8 : payload >= Length16 ? 2 : 0;
    const std::uint64_t length = extended == 8 ? Length64 : extended == 2 ? Length16 : payload;
    out[1] = static_cast<std::uint8_t>((masked ? MaskBit : 0) | length);
    for (std::size_t i = 0; i < extended; ++i) {
        out[2 + i] = static_cast<std::uint8_t>(payload >> (8 * (extended - 1 - i)));
    }
    bytes = 2 + extended;
    if (masked) {
        std::memcpy(out + bytes, key.data(), key.size());
        bytes += key.size();
    }
}

void applyMask(std::uint8_t* data, std::size_t size, const MaskKey& key) {
    std::uint64_t wide = 0;
    std::memcpy(&wide, key.data(), key.size());
    std::memcpy(reinterpret_cast<char*>(&wide) + key.size(), key.data(), key.size());
    std::size_t i = 0;
    for (; i + sizeof wide <= size; i += sizeof wide) {
        std::uint64_t word = 0;
        std::memcpy(&word, data + i, sizeof word);
        word ^= wide;
        std::memcpy(data + i, &word, sizeof word);
    }
    for (; i < size; ++i) {
        data[i] ^= key[i % key.size()];
    }
}

} // namespace bench
