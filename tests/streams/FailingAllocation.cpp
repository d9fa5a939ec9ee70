#include "streams/FailingAllocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constexpr int NoFailure = -1;
thread_local int successesLeft = NoFailure;

} // namespace

void* operator new(std::size_t size) {
    if (successesLeft == 0) {
        successesLeft = NoFailure;
        throw std::bad_alloc();
    }
    if (successesLeft > 0) {
        --successesLeft;
    }
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace vireotest {

FailingAllocation::FailingAllocation(int successes) {
    successesLeft = successes;
}

FailingAllocation::~FailingAllocation() {
    successesLeft = NoFailure;
}

} // namespace vireotest
