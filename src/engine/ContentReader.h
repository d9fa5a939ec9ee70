// SPDX-License-Identifier: MIT
#pragma once

#include "engine/FileBody.h"

#include <cstddef>
#include <cstdint>

#include <microhttpd.h>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// The engine's content reader for a streamed response (MHD_ContentReaderCallback): pulls the body out of the
/// request's response device on a daemon thread.
/// @param closure the HttpBaseRequest, null for none.
/// @return bytes copied; 0 to be called again, MHD_CONTENT_READER_END_OF_STREAM or MHD_CONTENT_READER_END_WITH_ERROR.
ssize_t readContent(void* closure, std::uint64_t position, char* buffer, std::size_t max) noexcept;

/// A file that the library reads itself, as the body of a request's response.
struct FileContent {
    HttpBaseRequest& request;
    FileBody body;
};

/// The content reader of such a body, and what frees it with the engine's response.
/// @param closure the FileContent.
///@{
ssize_t readFileContent(void* closure, std::uint64_t position, char* buffer, std::size_t max) noexcept;
void freeFileContent(void* closure) noexcept;
///@}

} // namespace ql::impl
