// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

/// A part of a file; not empty.
struct ByteRange {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;

    bool operator==(const ByteRange& other) const = default;
};

/// What the header Range asks for.
struct RangeChoice {
    enum class Kind : std::uint8_t {
        Whole,         ///< 200: there is no range, or none that is understood
        Parts,         ///< 206
        Unsatisfiable, ///< 416
    };

    Kind kind = Kind::Whole;
    /// In the order in which they were asked for, with a gap between any two.
    std::vector<ByteRange> parts{};
};

/// Understands ranges of bytes (RFC 9110 section 14). What is malformed, and any other unit, is passed over as a whole.
/// @param size of the file.
RangeChoice chooseRanges(std::string_view header, std::uint64_t size);

/// The value of Content-Range.
std::string contentRange(const ByteRange& part, std::uint64_t size);

} // namespace vireo::impl
