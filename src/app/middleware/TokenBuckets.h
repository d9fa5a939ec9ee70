// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace vireo::impl {

/// A bucket of tokens for each client, which fills evenly and pays for its requests. Any thread.
class TokenBuckets {
public:
    static constexpr std::size_t Shards = 16;
    static constexpr std::size_t MaxClients = 65536;

    /// @param requests in `periodMs`, evenly spread.
    /// @param burst the most that a bucket holds.
    TokenBuckets(unsigned int requests, std::int64_t periodMs, unsigned int burst);

    /// Pays for a request.
    /// @return 0 when there was a token; else the milliseconds until there is one.
    std::int64_t take(const std::string& client, std::int64_t nowMs);

    /// The name for a client to take() with, of 32 bytes, so that what is known of all clients has a bound. Nobody can
    /// choose clients whose names share a place in the table: what RateOptions::key() gives may be a client's to
    /// choose.
    std::string nameOf(std::string_view client) const;

    /// Of how many clients something is known.
    std::size_t size() const;

private:
    /// Until when each client's bucket would need to be full again, in microseconds: less says that it is full.
    using Buckets = std::unordered_map<std::string, std::int64_t>;

    struct Shard {
        mutable qlMutex mutex;
        Buckets fullAt QL_GUARDED_BY(mutex);
        /// Where the next sample begins.
        std::size_t cursor QL_GUARDED_BY(mutex) = 0;

        /// Makes room by dropping the fullest of a few.
        void dropFullest() QL_REQUIRES(mutex);
    };

    /// For one token, in microseconds.
    const std::int64_t cost_;
    const std::int64_t capacity_;
    /// Random. Constant after construction.
    std::string key_;
    std::array<Shard, Shards> shards_;
};

} // namespace vireo::impl
