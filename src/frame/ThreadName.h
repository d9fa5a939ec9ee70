// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace ql::impl {

/// The most characters of a thread's name that every system shows.
constexpr std::string::size_type MaxThreadNameLength = 15;

/// Names the calling thread for debuggers, where the system can. A system that refuses is left alone: the name is a
/// help, nothing depends on it.
/// @param name at most MaxThreadNameLength bytes of UTF-8.
void setCurrentThreadName(const std::string& name);

} // namespace ql::impl
