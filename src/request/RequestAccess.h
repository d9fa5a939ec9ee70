// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpBaseRequest.h"

#include <cstdint>
#include <string>
#include <utility>

namespace ql::impl {

/// What of a request is for the library alone. Daemon thread unless it says more.
struct RequestAccess {
    static HttpReceiveDevice& feed(HttpBaseRequest& request) { return request.editFeedDevice(); }

    static void setParseError(HttpBaseRequest& request, std::string&& message) {
        request.setParseError(std::move(message));
    }

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
