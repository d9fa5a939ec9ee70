// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// What an application can do wrong with a request so that it hangs or its body is lost, though each call does what it
/// promises.
enum class Misuse : std::uint32_t {
    WriteBeforeRelease,
    ReadOnDaemonThread,
    WriteWithoutWorker,
    WriteOfAnotherThread,
    MissingRelease,
};

/// Logs a line that names the misuse, the first time only for each request. Any thread.
void nameMisuse(HttpBaseRequest& request, Misuse misuse) noexcept;

/// Names it when the request's worker has stopped handling, long enough ago, and neither has its response been released
/// nor has another worker taken over. Daemon thread, before the request is scheduler-done.
void nameMissingRelease(HttpBaseRequest& request) noexcept;

} // namespace ql::impl
