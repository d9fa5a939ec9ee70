#include "vireo/WebSocket.h"

#include "vireo/support/Base64.h"
#include "vireo/support/HashHelper.h"
#include "websocket/BlockList.h"
#include "websocket/Unmask.h"

#include <algorithm>
#include <cstring>

// The framing of RFC 6455 as the server reads and writes it. Reading is narrower on purpose: of the opcode only the two
// low bits count, so that a close is a continuation, a ping is text and a pong is binary; the reserved bits and MASK
// are not looked at; a mask key is taken to be there always.

namespace ql::http {

namespace {

constexpr std::uint64_t SmallestHeader = 6;
constexpr std::uint64_t LargestHeader = 14;
constexpr std::uint64_t MaskKeySize = 4;

constexpr unsigned FinBit = 0x80;
constexpr unsigned OpcodeClassBits = 0x03;
constexpr unsigned LengthBits = 0x7F;
constexpr unsigned LengthIs16Bits = 126;
constexpr unsigned LengthIs64Bits = 127;

enum OpcodeClass : unsigned { Continuation = 0, Text = 1, Binary = 2, Rejected = 3 };

std::uint64_t readBigEndian(const unsigned char* bytes, unsigned count) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < count; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

void writeBigEndian(unsigned char* bytes, unsigned count, std::uint64_t value) {
    for (unsigned i = count; i > 0; --i) {
        bytes[i - 1] = static_cast<unsigned char>(value & 0xFF);
        value >>= 8;
    }
}

} // namespace

WebSocket::ReadFrameStatus WebSocket::tryToReadFrame() {
    if (readBlocks_.empty()) {
        return ReadFrameStatus::NeedMoreData;
    }

    unsigned char header[LargestHeader] = {};
    readNoSeek(header, LargestHeader);

    unsigned char maskKey[MaskKeySize] = {};
    std::uint64_t payloadLength = 0;
    std::uint64_t headerLength = 0;
    bool invalid = false;
    bool frameIsBinary = false;
    bool fin = false;
    if (!GetLength(header, bufferedBytes(), message_.empty(), maskKey, payloadLength, headerLength, invalid,
                   frameIsBinary, fin)) {
        return ReadFrameStatus::NeedMoreData;
    }
    if (invalid) {
        return ReadFrameStatus::Failed;
    }

    skipBytes(headerLength);
    if (message_.empty()) {
        isBinary_ = frameIsBinary;
    }
    const std::uint64_t old = message_.size();
    message_.resize(static_cast<std::size_t>(old + payloadLength));
    readRawData(message_, maskKey, old);

    if (fin) {
        onMessageReceived(message_, isBinary_);
        message_.clear();
        isBinary_ = false;
    }
    return ReadFrameStatus::FrameComplete;
}

void WebSocket::readRawData(std::vector<unsigned char>& message, const unsigned char* const maskKey,
                            std::uint64_t offset) {
    const std::uint64_t total = message.size() - offset;
    std::uint64_t done = 0;
    while (done < total) {
        const std::uint64_t count = std::min(total - done, blockSize_ - readOffset_);
        impl::unmask(message.data() + offset + done, readBlocks_.front().data() + readOffset_,
                     static_cast<std::size_t>(count), maskKey, static_cast<std::size_t>(done % MaskKeySize));
        done += count;
        consume(count);
    }
}

void WebSocket::skipBytes(std::uint64_t count) {
    while (count > 0) {
        const std::uint64_t part = std::min(count, blockSize_ - readOffset_);
        count -= part;
        consume(part);
    }
}

void WebSocket::readNoSeek(unsigned char* const out, std::uint64_t count) const {
    std::uint64_t left = std::min(count, bufferedBytes());
    std::uint64_t offset = readOffset_;
    unsigned char* target = out;
    for (auto block = readBlocks_.begin(); left > 0; ++block) {
        const std::uint64_t part = std::min(left, blockSize_ - offset);
        std::memcpy(target, block->data() + offset, static_cast<std::size_t>(part));
        target += part;
        left -= part;
        offset = 0;
    }
}

std::uint64_t WebSocket::bufferedBytes() const {
    return readBlocks_.empty() ? 0 : blockSize_ * (readBlocks_.size() - 1) + readEnd_ - readOffset_;
}

void WebSocket::consume(std::uint64_t count) {
    readOffset_ += count;
    if (readOffset_ == blockSize_) {
        // If it was the last one, it was full: readEnd_ is blockSize_ already, as it has to be with no block left.
        impl::releaseFirstBlock(readBlocks_);
        readOffset_ = 0;
    }
}

void WebSocket::releaseConsumedBlocks() {
    if (bufferedBytes() == 0) {
        impl::releaseBlocks(readBlocks_);
        readOffset_ = 0;
        readEnd_ = blockSize_;
    }
}

bool WebSocket::GetLength(const unsigned char* const data, std::uint64_t size, bool firstFragment,
                          unsigned char* const maskKey, std::uint64_t& payloadLength, std::uint64_t& headerLength,
                          bool& invalid, bool& isBinary, bool& fin) {
    invalid = false;
    if (size < SmallestHeader) {
        return false;
    }

    fin = (data[0] & FinBit) != 0;
    switch (data[0] & OpcodeClassBits) {
    case Text:
        isBinary = false;
        break;
    case Binary:
        isBinary = true;
        break;
    case Rejected:
        invalid = true;
        return true;
    case Continuation:
        if (firstFragment) {
            invalid = true;
            return true;
        }
        break;
    }

    const unsigned lengthCode = data[1] & LengthBits;
    std::uint64_t header = SmallestHeader;
    if (lengthCode == LengthIs16Bits) {
        header = 8;
        payloadLength = readBigEndian(data + 2, 2);
    } else if (lengthCode == LengthIs64Bits) {
        if (size < 10) {
            return false;
        }
        header = 14;
        payloadLength = readBigEndian(data + 2, 8);
    } else {
        payloadLength = lengthCode;
    }

    // Never header + payload: with a length near 2^64 that sum is a small number.
    if (size < header || payloadLength > size - header) {
        return false;
    }
    std::memcpy(maskKey, data + header - MaskKeySize, MaskKeySize);
    headerLength = header;
    return true;
}

void WebSocket::WriteHeader(unsigned char* out, std::uint64_t payloadLength, bool isBinary, bool isFirstFrame,
                            bool isFinal, std::uint64_t& headerLength) {
    const unsigned opcode = !isFirstFrame ? Continuation : isBinary ? Binary : Text;
    out[0] = static_cast<unsigned char>(opcode | (isFinal ? FinBit : 0));
    if (payloadLength < LengthIs16Bits) {
        out[1] = static_cast<unsigned char>(payloadLength);
        headerLength = 2;
    } else if (payloadLength <= 0xFFFF) {
        out[1] = LengthIs16Bits;
        writeBigEndian(out + 2, 2, payloadLength);
        headerLength = 4;
    } else {
        out[1] = LengthIs64Bits;
        writeBigEndian(out + 2, 8, payloadLength);
        headerLength = 10;
    }
}

std::string WebSocket::ComputeSecret(const char* key) {
    constexpr std::size_t KeyLength = 24;
    if (key == nullptr || std::strlen(key) != KeyLength) {
        return {};
    }
    const std::string text = std::string(key, KeyLength) + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";

    HashHelper hash(HashType::Sha1);
    std::string digest(32, '\0');
    hash.hash(text.data(), text.size(), digest.data(), digest.size());
    // Only the digest itself is encoded, not the zeros behind it: that is the value clients accept.
    std::string secret;
    base64Encode(digest.data(), hash.getDigestLength(), secret, Base64CharSet::Standard);
    return secret;
}

} // namespace ql::http
