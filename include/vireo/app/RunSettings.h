// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ql::http {
class ServerOptions;
class TlsContext;
} // namespace ql::http

namespace vireo {

namespace impl {
struct RunPlan;
}

/// What a line of the access log looks like: see ql::http::AccessLog::Format.
enum class AccessLogFormat : std::uint8_t {
    Combined, ///< the "combined" format of web servers
    Json,     ///< a JSON object
};

/// What RunOptions become on their way into the library, which so may be newer than the options' header. Made by
/// RunOptions::toSettings(); a setter for each field, which says more. Nothing is looked at before the start.
///
/// A value. One that was moved from may only be assigned to or destroyed.
class VIREO_APP_API RunSettings {
public:
    /// All with their defaults.
    RunSettings();
    /// Copies, or takes over.
    ///@{
    RunSettings(const RunSettings& other);
    RunSettings(RunSettings&& other) noexcept;
    RunSettings& operator=(const RunSettings& other);
    RunSettings& operator=(RunSettings&& other) noexcept;
    ///@}
    ~RunSettings();

    /// RunOptions::port
    void setPort(int port);
    /// RunOptions::address
    void setAddress(std::string address);
    /// RunOptions::listen
    void setListen(std::vector<std::string> endpoints);
    /// RunOptions::certificate
    void setCertificate(std::string file);
    /// RunOptions::key
    void setKey(std::string file);
    /// RunOptions::tls
    void setTls(std::shared_ptr<ql::http::TlsContext> tls);
    /// RunOptions::workers
    void setWorkers(unsigned int count);
    /// RunOptions::queue
    void setQueue(std::size_t size);
    /// RunOptions::threads
    void setThreads(unsigned int count);
    /// RunOptions::patience
    void setPatience(std::chrono::milliseconds patience);
    /// RunOptions::grace
    void setGrace(std::chrono::milliseconds grace);
    /// RunOptions::idle
    void setIdle(std::chrono::milliseconds idle);
    /// RunOptions::accessLog
    void setAccessLog(std::string file);
    /// RunOptions::accessLogFormat
    void setAccessLogFormat(AccessLogFormat format);
    /// RunOptions::signals
    void setSignals(bool on);
    /// RunOptions::activation
    void setActivation(bool on);
    /// RunOptions::quiet
    void setQuiet(bool on);
    /// RunOptions::server
    void setServer(std::function<void(ql::http::ServerOptions&)> adjust);

    /// For the library: what was set.
    const impl::RunPlan& plan() const;

private:
    std::unique_ptr<impl::RunPlan> plan_;
};

} // namespace vireo
