// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// Logs the exception that is being handled, as a failure. Any thread.
/// @param where names what threw it.
/// @param tag the category of the line, or null.
void logCurrentException(const char* where, const char* tag = nullptr) noexcept;

} // namespace ql::impl
