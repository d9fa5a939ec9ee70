// The compiler has been told to report each access to memory (-fsanitize=thread), but not to whom: to these functions.
// Each atomic access is a step. Others are none: what races there is found elsewhere.

#include "support/Interleavings.h"

#include <cstdint>

namespace {

using vireotest::Interleavings;

void step() {
    if (Interleavings::isScheduled()) {
        Interleavings::point();
    }
}

/// The counts of shared pointers, which order nothing that a test looks at, are many.
void stepUnlessCount(int order) {
    if (order != __ATOMIC_ACQ_REL) {
        step();
    }
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the compiler's.

#define VIREO_ATOMIC_STEPS(bits)                                                                                       \
    std::uint##bits##_t __tsan_atomic##bits##_load(const volatile std::uint##bits##_t* at, int) {                      \
        step();                                                                                                        \
        return __atomic_load_n(at, __ATOMIC_SEQ_CST);                                                                  \
    }                                                                                                                  \
    void __tsan_atomic##bits##_store(volatile std::uint##bits##_t* at, std::uint##bits##_t value, int) {               \
        step();                                                                                                        \
        __atomic_store_n(at, value, __ATOMIC_SEQ_CST);                                                                 \
    }                                                                                                                  \
    std::uint##bits##_t __tsan_atomic##bits##_exchange(volatile std::uint##bits##_t* at, std::uint##bits##_t value,    \
                                                       int) {                                                          \
        step();                                                                                                        \
        return __atomic_exchange_n(at, value, __ATOMIC_SEQ_CST);                                                       \
    }                                                                                                                  \
    std::uint##bits##_t __tsan_atomic##bits##_fetch_add(volatile std::uint##bits##_t* at, std::uint##bits##_t value,   \
                                                        int order) {                                                   \
        stepUnlessCount(order);                                                                                        \
        return __atomic_fetch_add(at, value, __ATOMIC_SEQ_CST);                                                        \
    }                                                                                                                  \
    std::uint##bits##_t __tsan_atomic##bits##_fetch_sub(volatile std::uint##bits##_t* at, std::uint##bits##_t value,   \
                                                        int) {                                                         \
        step();                                                                                                        \
        return __atomic_fetch_sub(at, value, __ATOMIC_SEQ_CST);                                                        \
    }                                                                                                                  \
    std::uint##bits##_t __tsan_atomic##bits##_fetch_and(volatile std::uint##bits##_t* at, std::uint##bits##_t value,   \
                                                        int) {                                                         \
        step();                                                                                                        \
        return __atomic_fetch_and(at, value, __ATOMIC_SEQ_CST);                                                        \
    }                                                                                                                  \
    std::uint##bits##_t __tsan_atomic##bits##_fetch_or(volatile std::uint##bits##_t* at, std::uint##bits##_t value,    \
                                                       int) {                                                          \
        step();                                                                                                        \
        return __atomic_fetch_or(at, value, __ATOMIC_SEQ_CST);                                                         \
    }                                                                                                                  \
    std::uint##bits##_t __tsan_atomic##bits##_fetch_xor(volatile std::uint##bits##_t* at, std::uint##bits##_t value,   \
                                                        int) {                                                         \
        step();                                                                                                        \
        return __atomic_fetch_xor(at, value, __ATOMIC_SEQ_CST);                                                        \
    }                                                                                                                  \
    int __tsan_atomic##bits##_compare_exchange_strong(volatile std::uint##bits##_t* at, std::uint##bits##_t* expected, \
                                                      std::uint##bits##_t value, int, int) {                           \
        step();                                                                                                        \
        return __atomic_compare_exchange_n(at, expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST) ? 1 : 0;    \
    }                                                                                                                  \
    int __tsan_atomic##bits##_compare_exchange_weak(volatile std::uint##bits##_t* at, std::uint##bits##_t* expected,   \
                                                    std::uint##bits##_t value, int, int) {                             \
        step();                                                                                                        \
        return __atomic_compare_exchange_n(at, expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST) ? 1 : 0;    \
    }

#define VIREO_NO_STEP(name)                                                                                            \
    void __tsan_##name(void*) {}
#define VIREO_NO_STEP_RANGE(name)                                                                                      \
    void __tsan_##name(void*, unsigned long) {}

extern "C" {

VIREO_ATOMIC_STEPS(8)
VIREO_ATOMIC_STEPS(16)
VIREO_ATOMIC_STEPS(32)
VIREO_ATOMIC_STEPS(64)

void __tsan_atomic_thread_fence(int) {
    step();
}
void __tsan_atomic_signal_fence(int) {}

void __tsan_init() {}
VIREO_NO_STEP(func_entry)
void __tsan_func_exit() {}
void __tsan_vptr_update(void**, void*) {}
void __tsan_vptr_read(void**) {}
VIREO_NO_STEP(read1)
VIREO_NO_STEP(read2)
VIREO_NO_STEP(read4)
VIREO_NO_STEP(read8)
VIREO_NO_STEP(read16)
VIREO_NO_STEP(write1)
VIREO_NO_STEP(write2)
VIREO_NO_STEP(write4)
VIREO_NO_STEP(write8)
VIREO_NO_STEP(write16)
VIREO_NO_STEP(unaligned_read2)
VIREO_NO_STEP(unaligned_read4)
VIREO_NO_STEP(unaligned_read8)
VIREO_NO_STEP(unaligned_read16)
VIREO_NO_STEP(unaligned_write2)
VIREO_NO_STEP(unaligned_write4)
VIREO_NO_STEP(unaligned_write8)
VIREO_NO_STEP(unaligned_write16)
VIREO_NO_STEP_RANGE(read_range)
VIREO_NO_STEP_RANGE(write_range)

} // extern "C"

// NOLINTEND(bugprone-reserved-identifier)
