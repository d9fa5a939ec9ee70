#include "streams/LargeMemory.h"

namespace ql::impl {

// Large pages take a privilege here, which an application seldom has.
void preferLargePages(void* /*memory*/, std::size_t /*size*/) noexcept {}

} // namespace ql::impl
