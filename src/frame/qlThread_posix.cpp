#include "frame/ThreadName.h"

#include <pthread.h>

namespace ql::impl {

void setCurrentThreadName([[maybe_unused]] const std::string& name) {
#if defined(__APPLE__)
    pthread_setname_np(name.c_str());
#elif defined(__linux__)
    pthread_setname_np(pthread_self(), name.c_str());
#endif
}

} // namespace ql::impl
