// SPDX-License-Identifier: MIT
#pragma once

#include "session/MessageEncoder.h"
#include "session/SessionSettings.h"
#include "vireo/WebSocketMessage.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>

namespace ql::impl {

/// A message for many, in the forms in which it goes out. Any thread.
class SharedMessage {
public:
    /// @param payload valid UTF-8 for a text.
    /// @throws std::bad_alloc
    SharedMessage(bool isText, std::span<const unsigned char> payload);

    static SharedMessage& Of(const http::WebSocketMessage& message) { return *message.shared_; }

    std::size_t payloadBytes() const { return payloadBytes_; }
    const EncodedFrame& plain() const { return plain_; }
    /// For a window of so many bits, with reference to nothing before it; plain where that is not longer. Compressed
    /// when it is wanted first, with the settings of whoever wants it.
    /// @throws std::bad_alloc
    EncodedFrame compressed(const DeflateSettings& settings, int windowBits) QL_EXCLUDES(mutex_);

private:
    static constexpr int LeastWindowBits = http::WebSocketCompression::MinWindowBits;
    static constexpr int MostWindowBits = http::WebSocketCompression::MaxWindowBits;

    const bool isText_;
    const std::size_t payloadBytes_;
    const EncodedFrame plain_;

    qlMutex mutex_;
    std::array<std::optional<EncodedFrame>, MostWindowBits - LeastWindowBits + 1> compressed_ QL_GUARDED_BY(mutex_);
};

} // namespace ql::impl
