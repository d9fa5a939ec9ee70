#include "app/kernel/Throw.h"

#include <new>
#include <stdexcept>
#include <system_error>

namespace vireo::impl {

void throwLogicError(const std::string& what) {
    throw std::logic_error(what);
}

void throwRuntimeError(const std::string& what) {
    throw std::runtime_error(what);
}

void throwLengthError(const std::string& what) {
    throw std::length_error(what);
}

void throwSystemError(int code, const std::string& what) {
    throw std::system_error(code, std::system_category(), what);
}

void throwNoMemory() {
    throw std::bad_alloc();
}

} // namespace vireo::impl
