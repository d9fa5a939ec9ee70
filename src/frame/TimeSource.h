// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql::impl {

/// What qlSystemUtils::GetTimeBaseMs() asks. Tests put a clock of their own here, so that rules of many seconds are
/// shown in milliseconds with their constants untouched; null is the system's steady clock. Set it while no other
/// thread depends on the time.
using TimeSource = std::int64_t (*)();
void setTimeSource(TimeSource source);

} // namespace ql::impl
