// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>

/// Random bytes of the platform's cryptographic generator. Any thread.
class VIREO_API qlRandomUtils {
public:
    /// Fills `out` with `size` random bytes.
    /// @throws std::runtime_error when the platform has no randomness to give.
    static void Rand(char* out, std::uint64_t size);
};
