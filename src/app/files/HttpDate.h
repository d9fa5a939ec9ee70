// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// A date of HTTP, in the form that is to be sent (RFC 9110 section 5.6.7).
/// @param unixSeconds from 1970 up to the year 9999.
std::string httpDate(std::int64_t unixSeconds);

/// Understands all three forms of a date.
/// @param nowSeconds which century a year of two digits belongs to depends on it.
/// @return seconds since 1970; none for what is no date.
std::optional<std::int64_t> parseHttpDate(std::string_view text, std::int64_t nowSeconds);

} // namespace vireo::impl
