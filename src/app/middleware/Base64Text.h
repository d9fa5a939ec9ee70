// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// With "-" and "_", without padding (RFC 4648 section 5).
std::string encodeBase64Url(std::string_view bytes);
/// None for what encodeBase64Url() would not write: each bytes have one text.
std::optional<std::string> decodeBase64Url(std::string_view text);

/// With "+" and "/" (RFC 4648 section 4), with its padding or without. None for anything else.
std::optional<std::string> decodeBase64(std::string_view text);

} // namespace vireo::impl
