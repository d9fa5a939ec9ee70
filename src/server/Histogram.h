// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ql::impl {

/// An upper bound of a histogram's bucket.
struct BucketBound {
    std::uint64_t value;
    /// As a label's value, in the unit that scrapers are told.
    const char* label;
};

/// Milliseconds, told in seconds.
inline constexpr std::array<BucketBound, 15> DurationBounds{{
    {1, "0.001"},
    {2, "0.002"},
    {5, "0.005"},
    {10, "0.01"},
    {20, "0.02"},
    {50, "0.05"},
    {100, "0.1"},
    {200, "0.2"},
    {500, "0.5"},
    {1000, "1.0"},
    {2000, "2.0"},
    {5000, "5.0"},
    {10000, "10.0"},
    {60000, "60.0"},
    {300000, "300.0"},
}};

/// Bytes.
inline constexpr std::array<BucketBound, 8> SizeBounds{{
    {100, "100.0"},
    {1000, "1000.0"},
    {10000, "10000.0"},
    {100000, "100000.0"},
    {1000000, "1e+06"},
    {10000000, "1e+07"},
    {100000000, "1e+08"},
    {1000000000, "1e+09"},
}};

/// How many values fell between which of the bounds, which ascend, and the sum of all. Any thread.
template <const auto& Bounds>
class Histogram {
public:
    /// A bucket for each bound, and one for what is above the last.
    static constexpr std::size_t BucketCount = Bounds.size() + 1;

    /// A value that is a bound itself belongs below it.
    void observe(std::uint64_t value) {
        const auto bound = std::lower_bound(Bounds.begin(), Bounds.end(), value,
                                            [](const BucketBound& b, std::uint64_t v) { return b.value < v; });
        buckets_[static_cast<std::size_t>(bound - Bounds.begin())].fetch_add(1, std::memory_order_relaxed);
        sum_.fetch_add(value, std::memory_order_relaxed);
    }

    /// Adds all of this histogram to another.
    void addTo(Histogram& other) const {
        for (std::size_t i = 0; i < BucketCount; ++i) {
            other.buckets_[i].fetch_add(getBucket(i), std::memory_order_relaxed);
        }
        other.sum_.fetch_add(getSum(), std::memory_order_relaxed);
    }

    /// How many values lie above the bound before and not above this one's.
    std::uint64_t getBucket(std::size_t index) const { return buckets_[index].load(std::memory_order_relaxed); }
    std::uint64_t getSum() const { return sum_.load(std::memory_order_relaxed); }

private:
    std::array<std::atomic<std::uint64_t>, BucketCount> buckets_{};
    std::atomic<std::uint64_t> sum_{0};
};

} // namespace ql::impl
