#include "engine/EngineLog.h"

#include "vireo/support/qlLog.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace ql::impl {

namespace {

constexpr std::size_t BufferBytes = 1024;

bool isTrailingBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0';
}

} // namespace

void relayEngineMessage(void* /*closure*/, const char* format, std::va_list arguments) noexcept {
    // Zero-filled: after a formatting failure the whole buffer counts as the message, and its zeros are stripped.
    std::array<char, BufferBytes> message{};
    const int formatted = std::vsnprintf(message.data(), message.size(), format, arguments);
    std::size_t length = BufferBytes - 1;
    if (formatted >= 0 && static_cast<std::size_t>(formatted) < length) {
        length = static_cast<std::size_t>(formatted);
    }
    // The first character stays whatever it is.
    while (length > 1 && isTrailingBlank(message[length - 1])) {
        --length;
    }
    message[length] = '\0';
    try {
        qlLogObject(qlLogType::Engine) << "libmicrohttpd: " << message.data();
    } catch (...) {
        // Without memory for a line there is no line.
    }
}

} // namespace ql::impl
