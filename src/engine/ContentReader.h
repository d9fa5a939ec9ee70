// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#include <microhttpd.h>

namespace ql::impl {

/// The engine's content reader for a streamed response (MHD_ContentReaderCallback): pulls the body out of the
/// request's response device on a daemon thread.
/// @param closure the HttpBaseRequest, null for none.
/// @return bytes copied; 0 to be called again, MHD_CONTENT_READER_END_OF_STREAM or MHD_CONTENT_READER_END_WITH_ERROR.
ssize_t readContent(void* closure, std::uint64_t position, char* buffer, std::size_t max) noexcept;

} // namespace ql::impl
