// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// A frame of a WebSocket (RFC 6455 section 5), as a client sends and takes them, without extensions.
struct FrameText {
    enum class Kind : std::uint8_t { Continuation = 0, Text = 1, Binary = 2, Close = 8, Ping = 9, Pong = 10 };

    /// Takes the next frame from the front of `bytes`; none where it has not come wholly. What no server may send is
    /// thrown as std::runtime_error.
    static std::optional<FrameText> Take(std::string& bytes);
    /// With a mask.
    std::string toBytes() const;

    Kind kind = Kind::Text;
    bool isFinal = true;
    std::string payload;
};

} // namespace vireo::impl
