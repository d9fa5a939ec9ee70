// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace vireo::impl {

// Thrown in a source of its own: the compiler for Windows exports the type information of what is thrown in one that
// knows an exported class with an exported base.

/// @throws std::logic_error always: the program is wrong.
[[noreturn]] void throwLogicError(const std::string& what);
/// @throws std::runtime_error always.
[[noreturn]] void throwRuntimeError(const std::string& what);
/// @throws std::length_error always.
[[noreturn]] void throwLengthError(const std::string& what);
/// @param code errno's, or that of GetLastError().
/// @throws std::system_error always.
[[noreturn]] void throwSystemError(int code, const std::string& what);

/// @throws std::bad_alloc always.
[[noreturn]] void throwNoMemory();

} // namespace vireo::impl
