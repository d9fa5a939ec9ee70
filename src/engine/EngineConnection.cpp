#include "engine/EngineConnection.h"

#include "engine/ConnectionTracking.h"
#include "engine/WakingCalls.h"
#include "websocket/SocketPort.h"

#include <charconv>

#include <microhttpd.h>

namespace ql::impl {

namespace {

MHD_Result visitValue(void* closure, MHD_ValueKind kind, const char* name, const char* value) noexcept {
    const auto& visitor = *static_cast<const EngineConnection::ValueVisitor*>(closure);
    switch (kind) {
    case MHD_HEADER_KIND:
        visitor(ValueKind::Header, name, value);
        break;
    case MHD_COOKIE_KIND:
        visitor(ValueKind::Cookie, name, value);
        break;
    case MHD_GET_ARGUMENT_KIND:
        visitor(ValueKind::QueryParameter, name, value);
        break;
    default:
        break;
    }
    return MHD_YES;
}

MHD_Result addHeader(void* headers, MHD_ValueKind /*kind*/, const char* name, std::size_t nameSize, const char* value,
                     std::size_t valueSize) noexcept {
    static_cast<std::vector<HeaderLine>*>(headers)->push_back({{name, nameSize}, {value, valueSize}});
    return MHD_YES;
}

constexpr SuspensionCalls EngineSuspensionCalls{&MHD_suspend_connection, &resumeInEngine};

} // namespace

ConnectionEnds endsOf(std::uint64_t socket, const SocketAddress& client) {
    SocketAddress local = SocketAddress::OfSocket(socket);
    local.unmap();
    ConnectionEnds ends;
    ends.clientPort = client.port();
    ends.localAddress.fromIP(local.get());
    ends.localPort = local.port();
    ends.isUnix = local.family() == AF_UNIX;
    return ends;
}

std::atomic<const SuspensionCalls*> suspensionCalls{&EngineSuspensionCalls};

std::string_view EngineConnection::header(const char* name) const {
    const char* const value = MHD_lookup_connection_value(connection_, MHD_HEADER_KIND, name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

std::vector<HeaderLine> EngineConnection::headers() const {
    // Room for all of them first: the engine calls in between, through which nothing may be thrown.
    std::vector<HeaderLine> headers;
    headers.reserve(
        static_cast<std::size_t>(MHD_get_connection_values(connection_, MHD_HEADER_KIND, nullptr, nullptr)));
    MHD_get_connection_values_n(connection_, MHD_HEADER_KIND, addHeader, &headers);
    return headers;
}

void EngineConnection::visitValues(const ValueVisitor& visitor) const {
    constexpr int Kinds = MHD_HEADER_KIND | MHD_COOKIE_KIND | MHD_GET_ARGUMENT_KIND;
    MHD_get_connection_values(connection_, static_cast<MHD_ValueKind>(Kinds), visitValue,
                              const_cast<ValueVisitor*>(&visitor));
}

IpAddress EngineConnection::clientAddress() const {
    IpAddress address;
    address.fromIP(client().get());
    return address;
}

ConnectionEnds EngineConnection::ends() const {
    return endsOf(socket(), client());
}

SocketAddress EngineConnection::client() const {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (info == nullptr || info->client_addr == nullptr) {
        return {};
    }
    // Copied at once, for the next question to the engine may be answered in the same place.
    return SocketAddress::Copy(info->client_addr);
}

std::uint64_t EngineConnection::headBytes() const {
    const MHD_ConnectionInfo* const info =
        MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
    return info == nullptr ? 0 : info->header_size;
}

std::optional<std::uint64_t> EngineConnection::announcedBodyBytes() const {
    if (header("Transfer-Encoding").data() != nullptr) {
        return std::nullopt;
    }
    // The engine has refused what is not a number.
    const std::string_view text = header("Content-Length");
    std::uint64_t length = 0;
    std::from_chars(text.data(), text.data() + text.size(), length);
    return length;
}

std::uint32_t EngineConnection::answerStatus() const {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_HTTP_STATUS);
    return info == nullptr ? 0 : info->http_status;
}

std::uint64_t EngineConnection::socket() const {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CONNECTION_FD);
    return info == nullptr ? InvalidSocket : static_cast<std::uint64_t>(info->connect_fd);
}

bool EngineConnection::isToldByEdges() const {
    MHD_Daemon* const daemon = place().daemon;
    const MHD_DaemonInfo* const info =
        daemon == nullptr ? nullptr : MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_EPOLL_FD);
    return info != nullptr && info->epoll_fd >= 0;
}

EnginePlace EngineConnection::place() const {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_DAEMON);
    return {info == nullptr ? nullptr : info->daemon, connection_};
}

ConnectionRecord* EngineConnection::record() const {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return info == nullptr ? nullptr : static_cast<ConnectionRecord*>(info->socket_context);
}

void* EngineConnection::tlsSession() const {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    return info == nullptr ? nullptr : info->tls_session;
}

} // namespace ql::impl
