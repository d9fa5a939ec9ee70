#include "streams/LargeMemory.h"

#include <cstdint>

#include <sys/mman.h>
#include <unistd.h>

namespace ql::impl {

void preferLargePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t size) noexcept {
#if defined(MADV_HUGEPAGE)
    const auto pageBytes = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t skipped = (pageBytes - address % pageBytes) % pageBytes;
    // Whole pages of the memory only; what the system makes of the advice is its own affair.
    madvise(static_cast<char*>(memory) + skipped, (size - skipped) / pageBytes * pageBytes, MADV_HUGEPAGE);
#endif
}

} // namespace ql::impl
