#include "vireo/WebSocket.h"

#include "vireo/support/Base64.h"
#include "vireo/support/HashHelper.h"
#include "websocket/FrameHeader.h"
#include "websocket/WebSocketState.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

namespace ql::http {

WebSocket::ReadFrameStatus WebSocket::tryToReadFrame() {
    unsigned char header[impl::MostHeaderBytesRead] = {};
    readNoSeek(header, sizeof header);

    impl::MaskKey maskKey{};
    std::uint64_t payloadLength = 0;
    std::uint64_t headerLength = 0;
    bool invalid = false;
    bool frameIsBinary = false;
    bool fin = false;
    if (!GetLength(header, state_->incoming.size(), !state_->message.isOpen(), maskKey.data(), payloadLength,
                   headerLength, invalid, frameIsBinary, fin)) {
        return ReadFrameStatus::NeedMoreData;
    }
    if (invalid) {
        return ReadFrameStatus::Failed;
    }

    skipBytes(headerLength);
    readRawData(message_, maskKey.data(), state_->message.addFrame(payloadLength, frameIsBinary));

    if (fin) {
        onMessageReceived(message_, isBinary_);
        state_->message.close();
    }
    return ReadFrameStatus::FrameComplete;
}

void WebSocket::readRawData(std::vector<unsigned char>& message, const unsigned char* const maskKey,
                            std::uint64_t offset) {
    state_->incoming.takeUnmasked(std::span(message).subspan(static_cast<std::size_t>(offset)), maskKey);
}

void WebSocket::skipBytes(std::uint64_t count) {
    state_->incoming.skip(count);
}

void WebSocket::readNoSeek(unsigned char* const out, std::uint64_t count) const {
    state_->incoming.peek(std::span(out, static_cast<std::size_t>(count)));
}

bool WebSocket::GetLength(const unsigned char* const data, std::uint64_t size, bool firstFragment,
                          unsigned char* const maskKey, std::uint64_t& payloadLength, std::uint64_t& headerLength,
                          bool& invalid, bool& isBinary, bool& fin) {
    const std::size_t front = static_cast<std::size_t>(std::min<std::uint64_t>(size, impl::MostHeaderBytesRead));
    const impl::FrameHeader header = impl::readFrameHeader(std::span(data, front), size, !firstFragment);
    invalid = header.status == impl::FrameStatus::Invalid;
    fin = header.isFinal.value_or(fin);
    isBinary = header.isBinary.value_or(isBinary);
    payloadLength = header.payloadBytes.value_or(payloadLength);
    if (header.status == impl::FrameStatus::Whole) {
        std::ranges::copy(header.maskKey, maskKey);
        headerLength = header.headerBytes;
    }
    return header.status != impl::FrameStatus::Incomplete;
}

void WebSocket::WriteHeader(unsigned char* out, std::uint64_t payloadLength, bool isBinary, bool isFirstFrame,
                            bool isFinal, std::uint64_t& headerLength) {
    const impl::FrameType type = !isFirstFrame ? impl::FrameType::Continuation
                                 : isBinary    ? impl::FrameType::Binary
                                               : impl::FrameType::Text;
    headerLength = impl::writeFrameHeader(
        std::span<unsigned char, impl::MostHeaderBytesWritten>(out, impl::MostHeaderBytesWritten), type, isFinal,
        payloadLength);
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
