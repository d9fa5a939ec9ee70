// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vireo::impl {

inline constexpr std::size_t HmacBytes = 32;

/// The HMAC-SHA256 of a text (RFC 2104), by the platform's crypto library.
/// @throws std::runtime_error when that has none.
std::string hmacSha256(std::string_view key, std::string_view text);

} // namespace vireo::impl
