// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace ql::impl {

/// Memory from this size on has a mapping of its own, whose pages are fresh each time: allocators that keep freed
/// memory for later, glibc's among them, give anything larger than 32 MiB back at once.
inline constexpr std::size_t LargeMemoryBytes = 33554433;

/// Asks the system to back memory of at least LargeMemoryBytes, which is not used yet, by large pages: one page fault
/// stands for hundreds then. Does nothing where there are none.
void preferLargePages(void* memory, std::size_t size) noexcept;

} // namespace ql::impl
