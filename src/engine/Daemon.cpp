#include "engine/Daemon.h"

#include "engine/EngineCallbacks.h"
#include "engine/EngineLog.h"
#include "engine/EngineTimeout.h"
#include "engine/ListenAddress.h"
#include "engine/Listener.h"
#include "engine/WakingCalls.h"
#include "tls/TlsCredentials.h"

#include <array>
#include <cstdint>
#include <limits>

#include <microhttpd.h>

namespace ql::impl {

namespace {

MHD_OptionItem numberOption(MHD_OPTION option, std::size_t value) {
    return {option, static_cast<std::intptr_t>(value), nullptr};
}

/// The engine takes the function of an option in its array as a number, and the closure as a pointer.
template <typename Function>
MHD_OptionItem functionOption(MHD_OPTION option, Function* function, void* closure) {
    return {option, reinterpret_cast<std::intptr_t>(function), closure};
}

} // namespace

bool Daemon::CanPoll() {
    return MHD_is_feature_supported(MHD_FEATURE_POLL) == MHD_YES ||
           MHD_is_feature_supported(MHD_FEATURE_EPOLL) == MHD_YES;
}

bool Daemon::CanTls() {
    return MHD_is_feature_supported(MHD_FEATURE_TLS) == MHD_YES && certificateOfNobody() != nullptr;
}

unsigned int Daemon::FlagsOf(const EngineOptions& options) {
    unsigned int flags = MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG;
    if (options.webSockets) {
        flags |= MHD_ALLOW_UPGRADE;
    }
    // With turbo the engine ends sessions without saying so.
    if (options.turbo && !options.tls) {
        flags |= MHD_USE_TURBO;
    }
    if (options.tls) {
        flags |= MHD_USE_TLS;
    }
    // With TLS what waits in its handshake.
    if (options.suspends || options.tls) {
        flags |= MHD_ALLOW_SUSPEND_RESUME;
    }
    if (options.front != nullptr) {
        flags |= MHD_USE_NO_LISTEN_SOCKET | MHD_USE_ITC;
    }
    return flags;
}

std::unique_ptr<Daemon> Daemon::Start(const EngineOptions& options, http::HttpServer& server) {
    sockaddr_in address = listenAddress(options.port, options.onAllInterfaces);
    const bool isGuest = options.front != nullptr;
    const MHD_NotifyConnectionCallback track = options.trackConnections ? &onConnection : nullptr;
    const MHD_NotifyConnectionCallback connectionCallback = isGuest ? &onConnectionOfFront : track;
    const auto uriCallback = isGuest ? &onUriOfFront : &onUri;
    const MHD_OptionItem end{MHD_OPTION_END, 0, nullptr};
    // The log comes first: the engine uses it from there on.
    std::array items = {
        functionOption(MHD_OPTION_EXTERNAL_LOGGER, &relayEngineMessage, nullptr),
        functionOption(MHD_OPTION_URI_LOG_CALLBACK, uriCallback, options.front),
        numberOption(MHD_OPTION_CONNECTION_MEMORY_LIMIT, options.connectionMemoryBytes),
        numberOption(MHD_OPTION_CONNECTION_TIMEOUT, timeoutSeconds(options.connectionTimeoutMs)),
        functionOption(MHD_OPTION_NOTIFY_COMPLETED, &onRequestCompleted, &server),
        numberOption(MHD_OPTION_STRICT_FOR_CLIENT, 1),
        functionOption(MHD_OPTION_NOTIFY_CONNECTION, connectionCallback, options.front),
        end,
    };
    std::array itemsOfListener = {
        numberOption(MHD_OPTION_LISTEN_BACKLOG_SIZE, options.listenBacklog),
        MHD_OptionItem{MHD_OPTION_SOCK_ADDR, 0, &address},
        numberOption(MHD_OPTION_THREAD_POOL_SIZE, options.threadPoolSize),
        end,
    };
    // At a limit of its own, version 0.9.75 keeps its mutex for ever from who is added.
    std::array itemsOfGuest = {
        numberOption(MHD_OPTION_CONNECTION_LIMIT, std::numeric_limits<unsigned int>::max()),
        end,
        end,
    };
    if (options.tls) {
        itemsOfGuest[1] = {MHD_OPTION_HTTPS_CERT_CALLBACK, 0, certificateOfNobody()};
    }
    // First what can fail without a trace: a daemon that runs must have somebody to stop it.
    std::unique_ptr<Daemon> daemon(new Daemon);
    daemon->daemon_ = MHD_start_daemon(FlagsOf(options), options.port, nullptr, nullptr, &onAccess, &server,
                                       MHD_OPTION_ARRAY, items.data(), MHD_OPTION_ARRAY,
                                       isGuest ? itemsOfGuest.data() : itemsOfListener.data(), MHD_OPTION_END);
    if (daemon->daemon_ == nullptr) {
        return nullptr;
    }
    return daemon;
}

std::uint16_t Daemon::port() const {
    const MHD_DaemonInfo* const info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
    return info == nullptr ? std::uint16_t{0} : info->port;
}

bool Daemon::addConnection(const AcceptedSocket& accepted) {
    return addToEngine(daemon_, accepted.socket, accepted.address.get(),
                       static_cast<std::size_t>(accepted.address.size()));
}

Daemon::~Daemon() {
    if (daemon_ != nullptr) {
        MHD_stop_daemon(daemon_);
    }
}

} // namespace ql::impl
