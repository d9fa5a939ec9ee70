#include "server/WebSocketHandshake.h"

#include "engine/EngineResponse.h"
#include "engine/UpgradeHandle.h"
#include "frame/ExceptionLog.h"
#include "frame/HttpSyntax.h"
#include "request/StrictHead.h"
#include "server/EventServing.h"
#include "server/Front.h"
#include "server/QueuedAnswer.h"
#include "server/RequestContext.h"
#include "server/RequestRefusal.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/WebSocket.h"
#include "websocket/SocketPort.h"
#include "websocket/WebSocketState.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

namespace ql::impl {

namespace {

constexpr std::uint32_t SwitchingProtocols = 101;
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
    response.addHeader(UpgradeHeader, "websocket");
    const std::string secret = http::WebSocket::ComputeSecret(key.c_str());
    // The engine refuses headers without a value; a blank goes out as an empty one.
    response.addHeader("Sec-WebSocket-Accept", secret.empty() ? " " : secret);
    response.addHeader(ConnectionHeader, "Upgrade");
    return queueAnswer(server, &context, connection, response, SwitchingProtocols);
}

/// Sixteen bytes in base 64.
bool isKey(std::string_view text) {
    constexpr std::size_t Size = 24;
    constexpr std::string_view Padding = "==";
    const auto isDigit = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
    };
    return text.size() == Size && text.substr(Size - Padding.size()) == Padding &&
           std::ranges::all_of(text.substr(0, Size - Padding.size()), isDigit);
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
        return requireVersion(server, context, connection, response);
    }
    const std::string_view key = connection.header(KeyHeader);
    if (key.data() == nullptr) {
        return refuse();
    }
    return accept(server, context, connection, std::string(key));
}

bool isWebSocketUpgrade(const RequestHead& head) {
    return head.method == "GET" && head.version != "HTTP/1.0" && hasElement(head, UpgradeHeader, "websocket") &&
           hasElement(head, ConnectionHeader, UpgradeHeader);
}

Verdict answerStrictWebSocketUpgrade(http::HttpServer& server, RequestContext& context, EngineConnection connection) {
    // Version 0.9.75 keeps the blanks behind a value.
    if (withoutBlanks(connection.header(VersionHeader)) != SupportedVersion) {
        EngineResponse response = EngineResponse::OfText(UpgradeRequiredPage);
        response.addHeader(UpgradeHeader, "websocket");
        response.addHeader(ConnectionHeader, "Upgrade");
        return requireVersion(server, context, connection, response);
    }
    const std::string key(withoutBlanks(connection.header(KeyHeader)));
    if (!isKey(key) || connection.announcedBodyBytes() != 0U) {
        return answerRefusal(server, context, connection, {BadRequest, "bad handshake of a WebSocket"});
    }
    return accept(server, context, connection, key);
}

void handOverUpgradedSocket(http::HttpServer& server, RequestContext* context, EngineConnection connection,
                            std::uint64_t socket, void* upgradeHandle) noexcept {
    const bool isAccepted = context != nullptr && context->front != nullptr;
    const std::uint64_t between = isAccepted && connection.socket() != socket ? connection.socket() : InvalidSocket;
    std::unique_ptr<http::WebSocket> webSocket;
    try {
        webSocket = std::make_unique<http::WebSocket>(socket, upgradeHandle);
        WebSocketState::of(*webSocket).connection = between;
        noteUpgrade(context, connection, *webSocket);
    } catch (...) {
        logCurrentException("an upgraded connection", "httpserver");
        closeUpgradedConnection(upgradeHandle, between);
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
