#include "websocket/Frames.h"

#include <gtest/gtest.h>

namespace wstest {

namespace {

void appendBigEndian(Bytes& bytes, std::uint64_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<unsigned char>(value >> shift & 0xFF));
    }
}

} // namespace

Bytes clientHeader(unsigned char firstByte, std::uint64_t length, LengthForm form, const MaskKey& key) {
    if (form == LengthForm::Shortest && length > 125) {
        form = length <= 0xFFFF ? LengthForm::Bits16 : LengthForm::Bits64;
    }
    Bytes frame{firstByte};
    switch (form) {
    case LengthForm::Shortest:
        frame.push_back(static_cast<unsigned char>(0x80 | length));
        break;
    case LengthForm::Bits16:
        frame.push_back(0x80 | 126);
        appendBigEndian(frame, length, 2);
        break;
    case LengthForm::Bits64:
        frame.push_back(0x80 | 127);
        appendBigEndian(frame, length, 8);
        break;
    }
    frame.insert(frame.end(), key.begin(), key.end());
    return frame;
}

Bytes clientFrame(unsigned char firstByte, const Bytes& payload, LengthForm form, const MaskKey& key) {
    Bytes frame = clientHeader(firstByte, payload.size(), form, key);
    for (std::size_t i = 0; i < payload.size(); ++i) {
        frame.push_back(static_cast<unsigned char>(payload[i] ^ key[i % 4]));
    }
    return frame;
}

std::optional<FrameSizes> frameSizes(const Bytes& stream, std::size_t at) {
    const std::size_t left = stream.size() - at;
    if (left < 2) {
        return {};
    }
    const unsigned int code = stream[at + 1] & 0x7FU;
    const std::size_t lengthBytes = code == 126 ? 2 : code == 127 ? 8 : 0;
    FrameSizes sizes{2 + lengthBytes, lengthBytes == 0 ? code : 0};
    if (left < sizes.header) {
        return {};
    }
    for (std::size_t i = 0; i < lengthBytes; ++i) {
        sizes.payload = sizes.payload << 8 | stream[at + 2 + i];
    }
    return sizes;
}

std::vector<ServerFrame> parseServerFrames(const Bytes& stream) {
    std::vector<ServerFrame> frames;
    std::size_t at = 0;
    while (at < stream.size()) {
        const std::optional<FrameSizes> sizes = frameSizes(stream, at);
        if (!sizes) {
            ADD_FAILURE() << "the stream ends inside a header";
            break;
        }
        EXPECT_EQ(stream[at] & 0x70, 0) << "reserved bits";
        EXPECT_EQ(stream[at + 1] & 0x80, 0) << "a server frame must not be masked";
        if (sizes->payload > stream.size() - at - sizes->header) {
            ADD_FAILURE() << "the stream ends inside a payload";
            break;
        }
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        const auto payload = begin + static_cast<std::ptrdiff_t>(sizes->header);
        const auto end = payload + static_cast<std::ptrdiff_t>(sizes->payload);
        frames.push_back({(stream[at] & 0x80) != 0, stream[at] & 0x0FU, Bytes(begin, payload), Bytes(payload, end)});
        at += sizes->header + static_cast<std::size_t>(sizes->payload);
    }
    return frames;
}

Bytes pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i % 251);
    }
    return bytes;
}

Bytes toBytes(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string toText(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

Bytes concatenate(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

} // namespace wstest
