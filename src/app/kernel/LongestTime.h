// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace vireo::impl {

/// The longest time that an option takes, 100 years: added to the time of day it does not overflow.
constexpr std::chrono::hours LongestTime{876600};

} // namespace vireo::impl
