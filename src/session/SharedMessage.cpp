#include "session/SharedMessage.h"

#include "websocket/FrameHeader.h"

namespace ql::impl {

SharedMessage::SharedMessage(bool isText, std::span<const unsigned char> payload)
    : isText_(isText),
      payloadBytes_(payload.size()),
      plain_(isText ? FrameType::Text : FrameType::Binary, true, payload) {}

EncodedFrame SharedMessage::compressed(const DeflateSettings& settings, int windowBits) {
    const qlMutexLocker lock(mutex_);
    std::optional<EncodedFrame>& form = compressed_[static_cast<std::size_t>(windowBits - LeastWindowBits)];
    if (!form) {
        const std::span<const unsigned char> frame = plain_.bytes();
        form = compressShared(isText_, frame.last(payloadBytes_), settings, windowBits).value_or(plain_);
    }
    return *form;
}

} // namespace ql::impl
