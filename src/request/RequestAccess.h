// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpBaseRequest.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace ql::impl {

/// What of a request is for the library alone. Daemon thread unless it says more.
struct RequestAccess {
    /// Any thread. @throws std::bad_alloc when nobody has had it before.
    static HttpReceiveDevice& feed(HttpBaseRequest& request) { return request.editFeedDevice(); }

    /// The same where a body may come. Any thread once handed over.
    /// @return null where none comes: the device has ended, or will have when somebody asks for it.
    static HttpReceiveDevice* feedOfBody(HttpBaseRequest& request) noexcept;

    /// Whoever makes the feed device later makes one with this window, or, where no body comes, one that has ended.
    /// Before the request is handed over.
    static void prepareFeed(HttpBaseRequest& request, std::uint64_t windowBytes, bool comesBody);

    // Intake: before the application sees the request, or where what is kept of a head is parsed, under the lock for
    // that.

    /// Of several the first counts.
    /// @param name of the header, cookie or argument; empty for anything else.
    static void setParseError(HttpBaseRequest& request, HttpBaseRequest::ParseErrorKind kind, std::string_view name,
                              std::string&& message);

    /// The application must see that something is missing.
    static void setMemoryError(HttpBaseRequest& request);

    /// Files all of the pair or, when memory is short, nothing: not a name without a value. Counts nothing.
    ///@{
    /// @return false, with the parse error set, where it is no header.
    static bool fileHeader(HttpBaseRequest& request, const char* name, const char* value);
    static void fileCookie(HttpBaseRequest& request, std::string&& name, std::string&& value);
    static void fileQueryParameter(HttpBaseRequest& request, std::string&& name, std::string&& value);
    ///@}

    /// A method that somebody knows, be it the application alone.
    static void setMethod(HttpBaseRequest& request, std::string_view token);

    /// @param target moved from when it is valid.
    /// @param uri the target as RFC 3986 wants it.
    /// @param maxBytes the longest URI.
    static void setTarget(HttpBaseRequest& request, std::string&& target, std::string_view uri, std::size_t maxBytes);
    /// The same, without the target as it came.
    /// @return false, with the parse error set, where it is none.
    static bool parseTarget(HttpBaseRequest& request, std::string_view uri, std::size_t maxBytes);

    static void setTargetAsItCame(HttpBaseRequest& request, std::string&& target) {
        request.originalUrl_ = std::move(target);
    }

    /// @param bytes of its name and its value.
    ///@{
    static void countHeaderLine(HttpBaseRequest& request, std::uint64_t bytes);
    static void countCookie(HttpBaseRequest& request, std::uint64_t bytes);
    ///@}

    /// From the end of the head to the last time that the engine asked for the response.
    static void setReadDuration(HttpBaseRequest& request, std::int64_t durationMs) {
        request.headerAndBodyReadDurationMs_.store(static_cast<std::uint64_t>(durationMs), std::memory_order_relaxed);
    }

    /// The response is about to be queued.
    static void setWriteStart(HttpBaseRequest& request, std::int64_t nowMs) {
        request.responseWriteStartMs_.store(nowMs, std::memory_order_relaxed);
    }

    static void addHeaderSentBytes(HttpBaseRequest& request, std::uint64_t bytes) {
        request.headerSentBytes_.fetch_add(bytes, std::memory_order_relaxed);
    }

    /// Any thread.
    static RequestState& state(HttpBaseRequest& request) { return *request.state_; }
};

} // namespace ql::impl
