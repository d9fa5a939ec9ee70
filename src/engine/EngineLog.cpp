#include "engine/EngineLog.h"

#include "engine/ConnectionTracking.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace ql::impl {

namespace {

constexpr std::size_t BufferBytes = 1024;

/// Whatever the reason was. Clients make the engine say it as often as they like.
constexpr std::string_view FailedHandshake = "Error: received handshake message out of context.\n";

bool isTrailingBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0';
}

/// Whether the last message of this thread was about an option of TCP that a socket does not have.
thread_local bool lacksOption = false;

/// Of a Unix socket the engine complains at every answer: first of each option, then of what that may lead to.
bool isOfUnixSocket(std::string_view message) {
    const bool lackedOption = lacksOption;
    lacksOption = message.starts_with("Setting TCP_") && message.ends_with(SystemError(EOPNOTSUPP).toString());
    return lacksOption || (lackedOption && message.starts_with("Failed to push the data"));
}

} // namespace

void relayEngineMessage(void* /*closure*/, const char* format, std::va_list arguments) noexcept {
    if (std::string_view(format) == FailedHandshake && !isTrackingLogged()) {
        return;
    }
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
        if (!isOfUnixSocket(message.data())) {
            qlLogObject(qlLogType::Engine) << "libmicrohttpd: " << message.data();
        }
    } catch (...) {
        // Without memory for a line there is no line.
    }
}

} // namespace ql::impl
