// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace ql::impl {

/// For sources that define an exported class with an exported base: there the compiler for Windows exports the type
/// information of each exception that is thrown, too.
/// @throws std::invalid_argument always.
[[noreturn]] void throwInvalidArgument(const std::string& what);

} // namespace ql::impl
