#include "vireo/support/SystemError.h"

#include <cstring>

namespace ql {
namespace {

// strerror_r comes in two kinds: one says whether it filled the buffer, the other returns the text, which may lie
// elsewhere. Overloads take either; a system uses one of them.
[[maybe_unused]] const char* textOf(int result, const char* buffer) {
    return result == 0 ? buffer : "";
}

[[maybe_unused]] const char* textOf(const char* result, const char*) {
    return result;
}

} // namespace

std::string SystemError::toString() const {
    char buffer[256] = {};
    std::string text = textOf(::strerror_r(code_, buffer, sizeof(buffer)), buffer);
    return text.empty() ? "system error " + std::to_string(code_) : text;
}

} // namespace ql
