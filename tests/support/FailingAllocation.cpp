#include "support/FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace vireotest {

namespace {

thread_local std::size_t untilFailure = 0;
thread_local bool isSpared = false;
std::atomic<std::size_t> othersUntilFailure{0};

bool isToFail() {
    if (untilFailure != 0) {
        --untilFailure;
        return untilFailure == 0;
    }
    if (isSpared) {
        return false;
    }
    std::size_t left = othersUntilFailure;
    while (left != 0 && !othersUntilFailure.compare_exchange_weak(left, left - 1)) {
    }
    return left == 1;
}

} // namespace

std::atomic<std::size_t> allocationFailures{0};

void failAllocation(std::size_t nth) {
    untilFailure = nth;
}

void failAllocationOfOthers(std::size_t nth) {
    isSpared = true;
    othersUntilFailure = nth;
}

void spareThisThread() {
    isSpared = true;
}

} // namespace vireotest

// The whole program allocates through these.

void* operator new(std::size_t size) {
    if (vireotest::isToFail()) {
        ++vireotest::allocationFailures;
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
