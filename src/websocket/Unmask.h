// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace ql::impl {

/// out[i] = in[i] XOR maskKey[(phase + i) mod 4]. The ranges are the same, or do not overlap.
/// @param maskKey 4 bytes.
void unmask(unsigned char* out, const unsigned char* in, std::size_t count, const unsigned char* maskKey,
            std::size_t phase);

} // namespace ql::impl
