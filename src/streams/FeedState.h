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
};

} // namespace ql::impl
