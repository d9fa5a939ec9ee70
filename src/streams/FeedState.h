// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql::impl {

/// What a HttpReceiveDevice keeps beside its declared fields. Guarded by its mutex.
struct FeedState {
    /// Where a blocked reader wants the bytes. No chunk has bytes before these, so that they need not go through one.
    char* wantedAt = nullptr;
    /// How many of them are there.
    std::uint64_t filledBytes = 0;
    /// That reader is served by the first of them.
    bool wantsAny = false;
    /// How much is to be buffered, and a piece more; 0 for no bound.
    std::uint64_t windowBytes = 0;
    /// The daemon thread holds a piece back that does not fit in.
    bool isHeld = false;
    /// Somebody has come to read, or has asked for the body.
    bool hasReader = false;
};

} // namespace ql::impl
