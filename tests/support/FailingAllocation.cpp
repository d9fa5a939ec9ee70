#include "support/FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace vireotest {

namespace {

thread_local std::size_t untilFailure = 0;
thread_local bool isSpared = false;
/// Up to the last that fails.
std::atomic<std::size_t> othersLeft{0};
std::atomic<std::size_t> othersInARow{1};

bool isToFail() {
    if (untilFailure != 0) {
        --untilFailure;
        return untilFailure == 0;
    }
    if (isSpared) {
        return false;
    }
    std::size_t left = othersLeft;
    while (left != 0 && !othersLeft.compare_exchange_weak(left, left - 1)) {
    }
    return left != 0 && left <= othersInARow;
}

} // namespace

std::atomic<std::size_t> allocationFailures{0};
std::atomic<std::size_t> livingAllocations{0};

void failAllocation(std::size_t nth) {
    untilFailure = nth;
}

void failAllocationOfOthers(std::size_t nth) {
    failAllocationsOfOthers(nth, 1);
}

void failAllocationsOfOthers(std::size_t nth, std::size_t inARow) {
    isSpared = true;
    othersLeft = 0;
    othersInARow = inARow;
    othersLeft = nth != 0 ? nth + inARow - 1 : 0;
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
        ++vireotest::livingAllocations;
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) {
        --vireotest::livingAllocations;
    }
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
