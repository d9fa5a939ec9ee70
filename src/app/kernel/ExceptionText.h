// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace vireo::impl {

/// @return what the exception that is being handled says. Any thread.
std::string currentExceptionText();

} // namespace vireo::impl
