// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Why a WebSocket is closed (RFC 6455 section 7.4).
namespace ql::impl::CloseCode {

inline constexpr std::uint16_t Normal = 1000;
inline constexpr std::uint16_t GoingAway = 1001;
inline constexpr std::uint16_t ProtocolError = 1002;
/// Never in a frame: the peer's close frame had no code.
inline constexpr std::uint16_t None = 1005;
/// Never in a frame: the connection ended without a close frame.
inline constexpr std::uint16_t Lost = 1006;
inline constexpr std::uint16_t InvalidPayload = 1007;
inline constexpr std::uint16_t TooBig = 1009;
inline constexpr std::uint16_t InternalError = 1011;
inline constexpr std::uint16_t TryAgainLater = 1013;

/// Whether a close frame may have this code: one that is registered, or one of those that libraries and applications
/// give their meaning.
constexpr bool mayBeInFrame(std::uint16_t code) {
    return (code >= 1000 && code <= 1003) || (code >= 1007 && code <= 1014) || (code >= 3000 && code <= 4999);
}

/// Whether a server may send it: what 1010 stands for only clients can miss.
constexpr bool mayBeSent(std::uint16_t code) {
    return mayBeInFrame(code) && code != 1010;
}

} // namespace ql::impl::CloseCode
