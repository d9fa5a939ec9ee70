#include "server/WebSocketHandshake.h"

#include "engine/EngineResponse.h"
#include "engine/UpgradeHandle.h"
#include "frame/ExceptionLog.h"
#include "server/EventServing.h"
#include "server/Front.h"
#include "server/QueuedAnswer.h"
#include "server/RequestContext.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/WebSocket.h"

#include <memory>
#include <string>

namespace ql::impl {

namespace {

constexpr std::uint32_t SwitchingProtocols = 101;
constexpr std::uint32_t UpgradeRequired = 426;
constexpr std::uint32_t InternalServerError = 500;

constexpr const char* UpgradeHeader = "Upgrade";
constexpr const char* ConnectionHeader = "Connection";
constexpr const char* VersionHeader = "Sec-WebSocket-Version";
constexpr std::string_view SupportedVersion = "13";

using Ending = http::ExchangeRecord::Ending;

constexpr std::string_view UpgradeRequiredPage = "<html>\n<head>\n<title>WebSocket</title>\n</head>\n<body>\n"
                                                 "Upgrade required\n</body>\n</html>\n";

void tellOfUpgrade(RequestContext* context, bool succeeded) noexcept {
    if (context != nullptr && context->recording) {
        const Ending ending = succeeded ? Ending::Upgraded : Ending::Failed;
        context->recording->finish(context->serving->observers, ending, SwitchingProtocols);
        context->recording.reset();
    }
}

/// It stays a connection of the server, which can tell it to go.
void noteUpgrade(RequestContext* context, EngineConnection connection, http::WebSocket& webSocket) {
    if (context == nullptr || context->front == nullptr) {
        return;
    }
    // The WebSocket may have another descriptor, which the engine connects with this one.
    context->front->admissions.upgrade(connection.socket());
    if (context->serving != nullptr) {
        context->serving->webSockets.add(webSocket);
    }
}

} // namespace

bool isWebSocketUpgrade(EngineConnection connection) {
    return connection.header(UpgradeHeader) == "WebSocket" &&
           connection.header(ConnectionHeader).find("Upgrade") != std::string_view::npos;
}

Verdict answerWebSocketUpgrade(http::HttpServer& server, RequestContext& context, EngineConnection connection,
                               std::string_view method, std::string_view version) {
    const auto refuse = [&] {
        noteEnding(context, Ending::Refused, "no handshake of a WebSocket");
        EngineResponse response = EngineResponse::OfText(server.getHttpImplementation()->getDefaultInternalError());
        return queueAnswer(server, &context, connection, response, InternalServerError);
    };
    if (!server.getParameters().webSocketEnabled || method != "GET" || version != "HTTP/1.1") {
        return refuse();
    }
    if (connection.header(VersionHeader) != SupportedVersion) {
        EngineResponse response = EngineResponse::OfText(UpgradeRequiredPage);
        response.addHeader(VersionHeader, std::string(SupportedVersion));
        noteEnding(context, Ending::Refused, "another version of WebSocket");
        return queueAnswer(server, &context, connection, response, UpgradeRequired);
    }
    const std::string_view key = connection.header("Sec-WebSocket-Key");
    if (key.data() == nullptr) {
        return refuse();
    }
    EngineResponse response = EngineResponse::OfUpgrade(server);
    response.addHeader(UpgradeHeader, "websocket");
    const std::string secret = http::WebSocket::ComputeSecret(key.data());
    // The engine refuses headers without a value; a blank goes out as an empty one.
    response.addHeader("Sec-WebSocket-Accept", secret.empty() ? " " : secret);
    response.addHeader(ConnectionHeader, "Upgrade");
    return queueAnswer(server, &context, connection, response, SwitchingProtocols);
}

void handOverUpgradedSocket(http::HttpServer& server, RequestContext* context, EngineConnection connection,
                            std::uint64_t socket, void* upgradeHandle) noexcept {
    std::unique_ptr<http::WebSocket> webSocket;
    try {
        webSocket = std::make_unique<http::WebSocket>(socket, upgradeHandle);
        noteUpgrade(context, connection, *webSocket);
    } catch (...) {
        logCurrentException("an upgraded connection", "httpserver");
        closeUpgradedConnection(upgradeHandle);
        webSocket.reset();
    }
    tellOfUpgrade(context, webSocket != nullptr);
    if (!webSocket) {
        return;
    }
    try {
        server.getHttpImplementation()->acceptWebSocket(webSocket.release());
    } catch (...) {
        logCurrentException("acceptWebSocket", "httpserver");
    }
}

} // namespace ql::impl
