// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/WorkerPool.h"
#include "app/run/RunPlan.h"
#include "vireo/AccessLog.h"
#include "vireo/HttpServer.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/ServerOptions.h"
#include "vireo/TlsContext.h"

#include <chrono>
#include <memory>
#include <vector>

namespace vireo::impl {

/// What a RunPlan means for the server and its threads.
struct RunSetup {
    /// Reads certificates and opens the access log.
    /// @param activated the sockets that a service manager has given, instead of the plan's places.
    /// @throws std::invalid_argument, std::runtime_error and std::system_error that say what is wrong.
    static RunSetup Of(const RunPlan& plan, std::vector<ql::http::ListenEndpoint> activated);

    /// Reads them anew. What cannot be read stays as it was, and the log says so.
    void reload() const;

    ql::http::ServerOptions options;
    ql::http::HttpServer::Parameters parameters;
    WorkerPool::Limits limits;
    /// For how long a stop waits.
    std::chrono::milliseconds patience{0};
    /// Null without.
    ///@{
    std::shared_ptr<ql::http::TlsContext> tls;
    std::shared_ptr<ql::http::AccessLog> accessLog;
    ///@}
};

/// How many workers there are when nobody says: four a hardware thread, 8 to 64.
unsigned int defaultWorkers(unsigned int hardwareThreads);

} // namespace vireo::impl
