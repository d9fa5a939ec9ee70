// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>

namespace ql::impl {

/// The engine counts a time-out in whole seconds: rounded up, so that a short one does not become 0, which is none.
/// Beyond 2^24 ms single precision decides what is rounded.
inline unsigned int timeoutSeconds(std::uint32_t timeoutMs) {
    return static_cast<unsigned int>(std::ceil(static_cast<float>(timeoutMs) / 1000.0));
}

} // namespace ql::impl
