// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace ql::impl {

/// An object for the rest of the process, as a static variable of the function that gives it out: there for static
/// objects of the application that use the library before or after its own would be, and for threads that still run
/// when the process ends. It needs no memory of its own.
///
/// As a variable of a thread it has no destructor either: where those are emulated (MinGW) they are freed before their
/// destructors run.
template <typename T>
class NeverDestroyed {
public:
    template <typename... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments) {
        new (memory_) T(std::forward<Arguments>(arguments)...);
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(memory_)); }
    T* operator->() { return &**this; }

private:
    alignas(T) std::byte memory_[sizeof(T)];
};

} // namespace ql::impl
