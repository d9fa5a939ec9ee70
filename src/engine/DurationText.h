// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace ql::impl {

/// A duration as a person would say it: two or three units, "1h 1m", "1s 500ms", "0ms". An hour or more is told to
/// the minute, a minute or more to the second.
std::string durationText(std::uint64_t durationMs);

} // namespace ql::impl
