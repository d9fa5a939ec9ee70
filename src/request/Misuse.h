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
    WriteWhileReading,
    FileBesideBody,
    BufferBesideBody,
};

/// Logs a line that names the misuse, the first time only for each request. Any thread.
void nameMisuse(HttpBaseRequest& request, Misuse misuse) noexcept;

/// Names it when the worker waits in writeBytes() and the body is held back, of which the rest has to be read before
/// any of the answer is taken. Whoever begins one of the two waits asks, under no device's lock.
void nameMutualWait(HttpBaseRequest& request) noexcept;

/// Names it when the request's worker has stopped handling, long enough ago, and neither has its response been released
/// nor has another worker taken over. Daemon thread, before the request is scheduler-done.
void nameMissingRelease(HttpBaseRequest& request) noexcept;

} // namespace ql::impl
