// SPDX-License-Identifier: MIT
#pragma once

#include <array>

// Input is const then.
#define ZLIB_CONST
#include <zlib.h>

namespace ql::impl {

/// How compressed data ends that was flushed to a byte border. Messages go without it (RFC 7692 section 7.2.1).
inline constexpr std::array<unsigned char, 4> DeflateTail = {0x00, 0x00, 0xFF, 0xFF};

} // namespace ql::impl
