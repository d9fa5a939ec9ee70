#include "server/WebSocketHandshake.h"

#include "frame/ExceptionLog.h"
#include "server/EngineCallbacks.h"
#include "server/ResponseQueue.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/WebSocket.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace ql::http {

namespace {

constexpr const char* VersionHeader = "Sec-WebSocket-Version";
constexpr std::string_view SupportedVersion = "13";

constexpr std::string_view UpgradeRequiredPage = "<html>\n<head>\n<title>WebSocket</title>\n</head>\n<body>\n"
                                                 "Upgrade required\n</body>\n</html>\n";

/// A header of the request; with a null pointer inside when it is missing.
std::string_view headerOf(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

bool isMissing(std::string_view header) {
    return header.data() == nullptr;
}

} // namespace

bool isWebSocketUpgrade(MHD_Connection* connection) {
    return headerOf(connection, MHD_HTTP_HEADER_UPGRADE) == "WebSocket" &&
           headerOf(connection, MHD_HTTP_HEADER_CONNECTION).find("Upgrade") != std::string_view::npos;
}

MHD_Result answerWebSocketUpgrade(HttpServer& server, MHD_Connection* connection, const char* method,
                                  const char* version) {
    const auto refuse = [&] {
        return makeFixedResponse(server.getHttpImplementation()->getDefaultInternalError())
            .queue(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);
    };
    if (!server.getParameters().webSocketEnabled || std::string_view(method) != MHD_HTTP_METHOD_GET ||
        std::string_view(version) != MHD_HTTP_VERSION_1_1) {
        return refuse();
    }
    if (headerOf(connection, VersionHeader) != SupportedVersion) {
        EngineResponse response = makeFixedResponse(UpgradeRequiredPage);
        response.addHeader(VersionHeader, std::string(SupportedVersion));
        return response.queue(connection, MHD_HTTP_UPGRADE_REQUIRED);
    }
    const std::string_view key = headerOf(connection, "Sec-WebSocket-Key");
    if (isMissing(key)) {
        return refuse();
    }
    EngineResponse response(MHD_create_response_for_upgrade(onUpgrade, &server));
    response.addHeader(MHD_HTTP_HEADER_UPGRADE, "websocket");
    const std::string secret = WebSocket::ComputeSecret(key.data());
    // The engine refuses headers without a value; a blank goes out as an empty one.
    response.addHeader("Sec-WebSocket-Accept", secret.empty() ? " " : secret);
    response.addHeader(MHD_HTTP_HEADER_CONNECTION, "Upgrade");
    return response.queue(connection, MHD_HTTP_SWITCHING_PROTOCOLS);
}

void handOverUpgradedSocket(HttpServer& server, MHD_socket socket, MHD_UpgradeResponseHandle* handle) noexcept {
    std::unique_ptr<WebSocket> connection;
    try {
        connection = std::make_unique<WebSocket>(static_cast<std::uint64_t>(socket), handle);
    } catch (...) {
        impl::logCurrentException("an upgraded connection", "httpserver");
        MHD_upgrade_action(handle, MHD_UPGRADE_ACTION_CLOSE);
        return;
    }
    try {
        server.getHttpImplementation()->acceptWebSocket(connection.release());
    } catch (...) {
        impl::logCurrentException("acceptWebSocket", "httpserver");
    }
}

} // namespace ql::http
