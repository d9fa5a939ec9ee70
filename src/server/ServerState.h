// SPDX-License-Identifier: MIT
#pragma once

#include "engine/StartFailure.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ql::impl {

class ServerRun;
class SessionServing;

/// What a server keeps beside the declared fields of its class.
struct ServerState {
    explicit ServerState(const http::ServerOptions& serverOptions) : options(serverOptions) {}

    void setStartFailure(StartFailure failure) QL_EXCLUDES(statusMutex) {
        startError = failure.error;
        const qlMutexLocker locker(statusMutex);
        startErrorText = std::move(failure.text);
    }

    /// None where the server does not run.
    void setPorts(std::vector<std::uint16_t> numbers) QL_EXCLUDES(statusMutex) {
        port = numbers.empty() ? std::uint16_t{0} : numbers.front();
        const qlMutexLocker locker(statusMutex);
        ports = std::move(numbers);
    }

    /// Constant after construction.
    const http::ServerOptions options;

    /// For who waits for a change of the status; the server's own lock is held by its thread. The status changes under
    /// both.
    qlMutex statusMutex;
    qlWaitCondition statusChanged;
    std::string startErrorText QL_GUARDED_BY(statusMutex);
    std::vector<std::uint16_t> ports QL_GUARDED_BY(statusMutex);

    /// Written by the server thread before the status says that there is something to read.
    ///@{
    std::atomic<http::HttpServer::StartError> startError{http::HttpServer::StartError::None};
    std::atomic<std::uint16_t> port{0};
    ///@}

    /// Read alone on daemon threads.
    ///@{
    std::atomic<bool> isDraining{false};
    std::atomic<SessionServing*> sessions{nullptr};
    ///@}
    /// Guarded by the server's mutex.
    ///@{
    std::int64_t drainDeadlineMs = 0;
    /// The run of the server thread, while it can be drained.
    ServerRun* run = nullptr;
    /// Of the last run, which fills it in at its end; who waits for that end keeps it.
    std::shared_ptr<http::HttpServer::DrainResult> drainResult;
    ///@}
};

} // namespace ql::impl
