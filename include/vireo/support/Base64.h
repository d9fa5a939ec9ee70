// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <string>

namespace ql {

/// The alphabets of base64Encode (RFC 4648).
enum class Base64CharSet : std::uint32_t {
    Standard = 0, ///< section 4, with padding
};

/// Replaces `out` by the base64 text of `data`. Any thread.
/// @return false, with `out` empty, for an unknown alphabet.
VIREO_API bool base64Encode(const char* data, std::uint64_t size, std::string& out, Base64CharSet charSet);

} // namespace ql
