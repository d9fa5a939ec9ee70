#include "reliability/Starvation.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> isNoMemoryLeft{false};
thread_local bool starves = false;

} // namespace

namespace vireotest {

void starve() {
    starves = true;
    isNoMemoryLeft = true;
}

void endStarvation() {
    isNoMemoryLeft = false;
}

} // namespace vireotest

void* operator new(std::size_t size) {
    void* const memory = starves && isNoMemoryLeft ? nullptr : std::malloc(size != 0 ? size : 1);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
