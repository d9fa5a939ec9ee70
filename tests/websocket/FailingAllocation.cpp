#include "websocket/FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace wstest {

namespace {

thread_local std::size_t untilFailure = 0;

bool isToFail() {
    if (untilFailure == 0) {
        return false;
    }
    --untilFailure;
    return untilFailure == 0;
}

} // namespace

std::atomic<std::size_t> allocationFailures{0};

void failAllocation(std::size_t nth) {
    untilFailure = nth;
}

} // namespace wstest

// The whole program allocates through these.

void* operator new(std::size_t size) {
    if (wstest::isToFail()) {
        ++wstest::allocationFailures;
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size > 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
