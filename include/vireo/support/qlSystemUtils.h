// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>

/// The system's clocks and size. Every function may be called from any thread.
class VIREO_API qlSystemUtils {
public:
    /// Monotonic milliseconds from an arbitrary origin, never negative: the time base of every duration here.
    static std::int64_t GetTimeBaseMs();

    /// Wall-clock milliseconds since the Unix epoch. Jumps when the system's clock is set.
    static std::int64_t GetMSecElapsedSinceEpoch();

    /// The number of hardware threads, at least 1.
    static int GetIdealThreadCount();
};
