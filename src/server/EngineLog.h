#pragma once

#include <cstdarg>

namespace ql::http {

/// Relays one of the engine's own diagnostic messages to the log (MHD_LogCallback). Daemon and server threads.
void relayEngineMessage(void* closure, const char* format, std::va_list arguments) noexcept;

/// Logs the exception that is being handled, as a failure.
/// @param where names what threw it.
void logCurrentException(const char* where) noexcept;

} // namespace ql::http
