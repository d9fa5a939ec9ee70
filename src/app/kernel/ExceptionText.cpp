#include "app/kernel/ExceptionText.h"

#include <exception>

namespace vireo::impl {

std::string currentExceptionText() {
    try {
        throw;
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "an exception of an unknown type";
    }
}

} // namespace vireo::impl
