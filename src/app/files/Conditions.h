// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// By what a client tells one version of a file from another.
struct Validators {
    /// With its quotes, and `W/` before them where it is weak.
    std::string etag;
    /// Seconds since 1970.
    std::int64_t lastModified = 0;

    bool isWeak() const { return etag.starts_with("W/"); }
};

/// The headers by which a request is conditional; empty where there is none.
struct Conditions {
    std::string_view ifMatch{};
    std::string_view ifNoneMatch{};
    std::string_view ifModifiedSince{};
    std::string_view ifUnmodifiedSince{};
};

/// What becomes of a conditional request.
enum class ConditionVerdict : std::uint8_t {
    Proceed,
    NotModified,        ///< 304
    PreconditionFailed, ///< 412
};

/// Asks the conditions in their order (RFC 9110 section 13.2.2). Dates that are none are passed over.
/// @param isRead whether the method is GET or HEAD.
ConditionVerdict checkConditions(const Conditions& conditions, const Validators& now, bool isRead,
                                 std::int64_t nowSeconds);

/// Whether the header Range counts, as far as If-Range says.
bool isRangeCurrent(std::string_view ifRange, const Validators& now, std::int64_t nowSeconds);

} // namespace vireo::impl
