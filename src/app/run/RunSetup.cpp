// SPDX-License-Identifier: MIT
#include "app/run/RunSetup.h"

#include "app/kernel/Service.h"
#include "app/kernel/Throw.h"
#include "frame/ExceptionLog.h"
#include "frame/InvalidArgument.h"
#include "vireo/support/IpAddress.h"
#include "vireo/support/qlLog.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace vireo::impl {

namespace {

using ql::http::AccessLog;
using ql::http::ListenEndpoint;
using ql::http::TlsContext;

constexpr std::string_view AnyAddress = "*";

std::shared_ptr<TlsContext> tlsOf(const RunPlan& plan) {
    if (plan.certificate.empty() && plan.key.empty()) {
        return plan.tls;
    }
    if (plan.tls != nullptr) {
        ql::impl::throwInvalidArgument("an app takes either tls or certificate and key");
    }
    if (plan.certificate.empty() || plan.key.empty()) {
        ql::impl::throwInvalidArgument("a certificate and its key go together: one of them is missing");
    }
    ql::http::TlsOptions options;
    options.addCertificateFiles(plan.certificate, plan.key);
    std::string error;
    std::shared_ptr<TlsContext> tls = TlsContext::Create(options, &error);
    if (tls == nullptr) {
        throwRuntimeError("no TLS: " + error);
    }
    return tls;
}

/// Whether the server takes it: it looks up no names.
bool isAddress(std::string_view text) {
    // The name of a link, behind a percent sign, is the system's to know.
    return ql::IpAddress::Parse(text.substr(0, text.find('%'))).has_value();
}

/// @param text such as "127.0.0.1:80" and "[::1]:80".
bool hasAddress(std::string_view text) {
    std::string_view host = text.substr(0, text.rfind(':'));
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    }
    return host == AnyAddress || isAddress(host);
}

ListenEndpoint endpointOf(const std::string& text) {
    const std::optional<ListenEndpoint> endpoint = ListenEndpoint::Parse(text);
    if (!endpoint || !(text.starts_with("unix:") || hasAddress(text))) {
        ql::impl::throwInvalidArgument("RunOptions::listen : \"" + text +
                                       "\" is no IP address with a port, such as 127.0.0.1:8080, [::1]:8080 or *:8080 "
                                       "for all, and no unix:/run/my.sock");
    }
    return *endpoint;
}

ListenEndpoint endpointOf(const std::string& address, std::uint16_t port) {
    if (address == AnyAddress) {
        return ListenEndpoint::DualStack(port);
    }
    if (!isAddress(address)) {
        ql::impl::throwInvalidArgument("RunOptions::address : \"" + address +
                                       "\" is no IP address, such as 127.0.0.1 or ::1, nor * for all; a port is given "
                                       "by RunOptions::port, or with its address in RunOptions::listen");
    }
    return ListenEndpoint::Tcp(address, port);
}

std::uint16_t portOf(const RunPlan& plan) {
    constexpr int Most = 65535;
    if (plan.port < 0 || plan.port > Most) {
        ql::impl::throwInvalidArgument("RunOptions::port is " + std::to_string(plan.port) + ", not 0 to 65535");
    }
    return static_cast<std::uint16_t>(plan.port);
}

std::vector<ListenEndpoint> listenersOf(const RunPlan& plan) {
    const std::uint16_t port = portOf(plan);
    std::vector<ListenEndpoint> listeners;
    for (const std::string& text : plan.listen) {
        listeners.push_back(endpointOf(text));
    }
    if (listeners.empty()) {
        listeners.push_back(endpointOf(plan.address, port));
    }
    return listeners;
}

/// One line after the other, each at once: whoever reads them sees them when they are written. A lambda, because what
/// describes the type of a function in an std::function would be exported from the library.
constexpr auto writeToStandardOutput = [](std::string_view line) {
    std::string text(line);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
};

std::shared_ptr<AccessLog> accessLogOf(const RunPlan& plan) {
    if (plan.accessLog.empty()) {
        return nullptr;
    }
    const auto format =
        plan.accessLogFormat == AccessLogFormat::Json ? AccessLog::Format::Json : AccessLog::Format::Combined;
    return plan.accessLog == "-" ? std::make_shared<AccessLog>(format, writeToStandardOutput)
                                 : std::make_shared<AccessLog>(format, plan.accessLog);
}

std::uint32_t millisecondsOf(std::chrono::milliseconds time, const char* what) {
    constexpr std::int64_t Most = 86400000;
    if (time.count() < 0 || time.count() > Most) {
        ql::impl::throwInvalidArgument(std::string(what) + " is from 0 up to a day");
    }
    return static_cast<std::uint32_t>(time.count());
}

} // namespace

unsigned int defaultWorkers(unsigned int hardwareThreads) {
    return std::clamp(4 * hardwareThreads, 8U, 64U);
}

RunSetup RunSetup::Of(const RunPlan& plan, std::vector<ListenEndpoint> activated) {
    RunSetup setup;
    setup.patience = std::chrono::milliseconds(millisecondsOf(plan.patience, "patience"));
    setup.options = Service::BaseOptions();
    setup.options.setDrainGraceMs(millisecondsOf(plan.grace, "grace"));
    setup.tls = tlsOf(plan);
    std::vector<ListenEndpoint> listeners = activated.empty() ? listenersOf(plan) : std::move(activated);
    for (ListenEndpoint& listener : listeners) {
        if (setup.tls != nullptr) {
            listener.setTls(setup.tls);
        }
        setup.options.addListener(listener);
    }
    setup.accessLog = accessLogOf(plan);
    if (setup.accessLog != nullptr) {
        setup.options.addExchangeObserver(setup.accessLog);
    }
    if (plan.server) {
        plan.server(setup.options);
    }
    setup.parameters.connectionTimeoutMs = millisecondsOf(plan.idle, "idle");
    if (plan.threads != 0) {
        setup.parameters.threadPoolSize = plan.threads;
    }
    setup.limits.workers = plan.workers != 0 ? plan.workers : defaultWorkers(std::thread::hardware_concurrency());
    setup.limits.queue = plan.queue;
    return setup;
}

void RunSetup::reload() const {
    std::string error;
    if (tls != nullptr && !tls->reload(&error)) {
        qlLogObject(qlLogType::Failure, "app") << "the certificates stay as they were : " << error;
    }
    if (accessLog != nullptr) {
        try {
            accessLog->reopen();
        } catch (...) {
            ql::impl::logCurrentException("opening the access log anew", "app");
        }
    }
}

} // namespace vireo::impl
