#include "vireo/support/qlSystemUtils.h"

#include "frame/TimeSource.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

std::atomic<ql::impl::TimeSource> injectedSource{nullptr};

template <typename Clock>
std::int64_t millisecondsOf() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch()).count();
}

} // namespace

namespace ql::impl {

void setTimeSource(TimeSource source) {
    injectedSource.store(source);
}

} // namespace ql::impl

std::int64_t qlSystemUtils::GetTimeBaseMs() {
    const ql::impl::TimeSource source = injectedSource.load();
    return source != nullptr ? source() : millisecondsOf<std::chrono::steady_clock>();
}

std::int64_t qlSystemUtils::GetMSecElapsedSinceEpoch() {
    return millisecondsOf<std::chrono::system_clock>();
}

int qlSystemUtils::GetIdealThreadCount() {
    const unsigned int count = std::thread::hardware_concurrency();
    return count == 0 ? 1 : static_cast<int>(count);
}
