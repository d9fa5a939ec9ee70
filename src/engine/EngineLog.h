// SPDX-License-Identifier: MIT
#pragma once

#include <cstdarg>

namespace ql::impl {

/// Relays one of the engine's own diagnostic messages to the log (MHD_LogCallback). Daemon and server threads.
void relayEngineMessage(void* closure, const char* format, std::va_list arguments) noexcept;

} // namespace ql::impl
