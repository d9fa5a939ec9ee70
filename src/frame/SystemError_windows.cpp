#include "vireo/support/SystemError.h"

#include <WindowsHeaders.h>

namespace ql {
namespace {

std::string toUtf8(const wchar_t* wide, int length) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide, length, nullptr, 0, nullptr, nullptr);
    std::string text(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    if (size > 0) {
        WideCharToMultiByte(CP_UTF8, 0, wide, length, text.data(), size, nullptr, nullptr);
    }
    return text;
}

} // namespace

std::string SystemError::toString() const {
    wchar_t wide[512] = {};
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        static_cast<DWORD>(code_), 0, wide, 512, nullptr);
    std::string text = toUtf8(wide, static_cast<int>(length));
    // The system ends its texts with a line end.
    text.erase(text.find_last_not_of(" \r\n") + 1);
    return text.empty() ? "system error " + std::to_string(code_) : text;
}

} // namespace ql
