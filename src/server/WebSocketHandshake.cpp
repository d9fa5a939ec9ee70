#include "server/WebSocketHandshake.h"

#include "engine/EngineResponse.h"
#include "engine/UpgradeHandle.h"
#include "frame/ExceptionLog.h"
#include "frame/HttpSyntax.h"
#include "server/EventServing.h"
#include "server/Front.h"
#include "server/QueuedAnswer.h"
#include "server/RequestContext.h"
#include "server/RequestRefusal.h"
#include "session/AcceptedSession.h"
#include "session/Opening.h"
#include "session/SessionCore.h"
#include "session/SessionServing.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/WebSocket.h"
#include "websocket/SocketPort.h"
#include "websocket/WebSocketState.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace ql::impl {

namespace {

constexpr std::uint32_t BadRequest = 400;
constexpr std::uint32_t UpgradeRequired = 426;
constexpr std::uint32_t InternalServerError = 500;

constexpr const char* UpgradeHeader = "Upgrade";
constexpr const char* ConnectionHeader = "Connection";
constexpr const char* VersionHeader = "Sec-WebSocket-Version";
constexpr const char* KeyHeader = "Sec-WebSocket-Key";
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

Verdict requireVersion(const http::HttpServer& server, RequestContext& context, EngineConnection connection,
                       EngineResponse& response) {
    response.addHeader(VersionHeader, std::string(SupportedVersion));
    noteEnding(context, Ending::Refused, "another version of WebSocket");
    return queueAnswer(server, &context, connection, response, UpgradeRequired);
}

Verdict accept(http::HttpServer& server, RequestContext& context, EngineConnection connection, const std::string& key) {
    EngineResponse response = EngineResponse::OfUpgrade(server);
    addAcceptance(response, key);
    response.addHeader(ConnectionHeader, "Upgrade");
    return queueAnswer(server, &context, connection, response, SwitchingProtocols);
}

/// It stays a connection of the server, which counts it.
/// @return the socket to the peer where the engine stands between; else InvalidSocket.
std::uint64_t noteUpgrade(RequestContext* context, EngineConnection connection, std::uint64_t socket) noexcept {
    if (context == nullptr || context->front == nullptr) {
        return InvalidSocket;
    }
    // The WebSocket may have another descriptor, which the engine connects with this one.
    context->front->admissions.upgrade(connection.socket());
    return connection.socket() == socket ? InvalidSocket : connection.socket();
}

std::unique_ptr<http::WebSocket> wrap(const RequestContext* context, std::uint64_t socket, void* upgradeHandle,
                                      std::uint64_t between) noexcept {
    std::unique_ptr<http::WebSocket> webSocket;
    try {
        webSocket = std::make_unique<http::WebSocket>(socket, upgradeHandle);
        WebSocketState::of(*webSocket).connection = between;
        if (context != nullptr && context->serving != nullptr) {
            context->serving->webSockets.add(*webSocket);
        }
    } catch (...) {
        logCurrentException("an upgraded connection", "httpserver");
        closeUpgradedConnection(upgradeHandle, between);
        webSocket.reset();
    }
    return webSocket;
}

} // namespace

void addAcceptance(EngineResponse& response, const std::string& key) {
    response.addHeader(UpgradeHeader, "websocket");
    const std::string secret = http::WebSocket::ComputeSecret(key.c_str());
    // The engine refuses headers without a value; a blank goes out as an empty one.
    response.addHeader("Sec-WebSocket-Accept", secret.empty() ? " " : secret);
}

Verdict answerUpgradeRequired(const http::HttpServer& server, RequestContext& context, EngineConnection connection) {
    EngineResponse response = EngineResponse::OfText(UpgradeRequiredPage);
    response.addHeader(UpgradeHeader, "websocket");
    response.addHeader(ConnectionHeader, "Upgrade");
    return requireVersion(server, context, connection, response);
}

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
        return requireVersion(server, context, connection, response);
    }
    const std::string_view key = connection.header(KeyHeader);
    if (key.data() == nullptr) {
        return refuse();
    }
    return accept(server, context, connection, std::string(key));
}

Verdict answerStrictWebSocketUpgrade(http::HttpServer& server, RequestContext& context, EngineConnection connection) {
    // Version 0.9.75 keeps the blanks behind a value.
    if (withoutBlanks(connection.header(VersionHeader)) != SupportedVersion) {
        return answerUpgradeRequired(server, context, connection);
    }
    const std::string key(withoutBlanks(connection.header(KeyHeader)));
    if (!isOpeningKey(key) || connection.announcedBodyBytes() != 0U) {
        return answerRefusal(server, context, connection, {BadRequest, "bad handshake of a WebSocket"});
    }
    return accept(server, context, connection, key);
}

void handOverUpgradedSocket(http::HttpServer& server, RequestContext* context, EngineConnection connection,
                            const UpgradedSocket& upgraded) noexcept {
    const std::uint64_t between = noteUpgrade(context, connection, upgraded.socket);
    if (between != InvalidSocket) {
        // The engine may pass on a few bytes at a time, and none has to wait until the peer has acknowledged others.
        prepareSocket(between);
    }
    if (context != nullptr && context->accepted) {
        tellOfUpgrade(context, true);
        AcceptedSession& accepted = *context->accepted;
        accepted.serving.begin(
            {std::move(accepted.session), upgraded.socket, upgraded.handle, between, upgraded.extraBytes});
        return;
    }
    std::unique_ptr<http::WebSocket> webSocket = wrap(context, upgraded.socket, upgraded.handle, between);
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
