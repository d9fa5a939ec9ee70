#include "frame/ExceptionLog.h"

#include "frame/Utf8.h"
#include "vireo/support/qlLog.h"

#include <exception>

namespace ql::impl {

void logCurrentException(const char* where, const char* tag) noexcept {
    try {
        qlLogObject line(qlLogType::Failure, tag);
        line << where << " threw an exception";
        try {
            throw;
        } catch (const std::exception& exception) {
            // It may tell of what a client has sent.
            line << " : " << withoutControls(exception.what());
        } catch (...) {
            line << " of an unknown type";
        }
    } catch (...) {
        // Without memory for a line there is no line.
    }
}

} // namespace ql::impl
