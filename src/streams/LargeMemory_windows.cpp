#include "streams/LargeMemory.h"

namespace ql {

// Large pages take a privilege here, which an application seldom has.
void preferLargePages(void* /*memory*/, std::size_t /*size*/) noexcept {}

} // namespace ql
