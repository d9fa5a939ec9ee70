#include "server/SessionHandshake.h"

#include "engine/ConnectionTracking.h"
#include "engine/EngineResponse.h"
#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"
#include "frame/Utf8.h"
#include "request/StrictIntake.h"
#include "server/OpeningRequest.h"
#include "server/QueuedAnswer.h"
#include "server/RequestContext.h"
#include "server/RequestFiling.h"
#include "server/RequestRefusal.h"
#include "server/ServerAccess.h"
#include "server/WebSocketHandshake.h"
#include "session/AcceptedSession.h"
#include "session/AnswerData.h"
#include "session/Opening.h"
#include "session/SessionCore.h"
#include "session/SessionServing.h"
#include "session/WebOrigin.h"
#include "vireo/HttpServer.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/support/qlLog.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

namespace ql::impl {

namespace {

constexpr std::uint32_t BadRequest = 400;
constexpr std::uint32_t Forbidden = 403;
constexpr std::uint32_t ServiceUnavailable = 503;

constexpr RequestRefusal Drained{ServiceUnavailable, "the server is being drained"};
constexpr RequestRefusal ForeignOrigin{Forbidden, "foreign Origin"};

std::string hostOf(EngineConnection connection, const StrictHead* strict) {
    if (strict != nullptr && strict->verdict.authority) {
        return *strict->verdict.authority;
    }
    return std::string(withoutBlanks(connection.header("Host")));
}

bool isTls(EngineConnection connection) {
    const ConnectionRecord* const record = connection.record();
    return record != nullptr && record->tls.isOn();
}

bool isOriginAllowed(http::WebSocketAcceptor& acceptor, const SessionSettings& settings, const Opening& opening) {
    if (opening.origin().empty()) {
        return true;
    }
    const std::optional<WebOrigin> origin = WebOrigin::parse(opening.origin());
    const bool isListed =
        origin && std::ranges::find(settings.allowedOrigins, *origin) != settings.allowedOrigins.end();
    return isListed || acceptor.isOriginAllowed(http::WebSocketOpening(opening));
}

void addHeaders(EngineResponse& response, const AnswerData& answer) {
    for (const auto& [name, value] : answer.headers) {
        response.addHeader(name, value);
    }
}

Verdict accept(http::HttpServer& server, RequestContext& context, EngineConnection connection,
               const OpeningHead& opening, AnswerData& answer) {
    SessionServing& serving = *ServerAccess::sessions(server);
    const std::shared_ptr<const SessionSettings>& settings = answer.settings ? answer.settings : serving.settings();
    const auto& compression = settings->compression;
    const auto deflate =
        compression ? chooseDeflate(opening.extensions, CompressionSettings::of(*compression).deflate) : std::nullopt;
    EngineResponse response = EngineResponse::OfUpgrade(server);
    addAcceptance(response, opening.key);
    if (!answer.subprotocol.empty()) {
        if (std::ranges::find(opening.subprotocols, answer.subprotocol) == opening.subprotocols.end()) {
            throwInvalidArgument("the client does not offer the subprotocol '" + answer.subprotocol + "'");
        }
        response.addHeader("Sec-WebSocket-Protocol", answer.subprotocol);
    }
    if (deflate) {
        response.addHeader("Sec-WebSocket-Extensions", deflate->answer);
    }
    addHeaders(response, answer);
    SessionCore::Of(*answer.session).prepare(settings, deflate);
    context.accepted = std::make_unique<AcceptedSession>(AcceptedSession{serving, std::move(answer.session)});
    return queueAnswer(server, &context, connection, response, SwitchingProtocols);
}

Verdict refuse(const http::HttpServer& server, RequestContext& context, EngineConnection connection,
               const AnswerData& answer) {
    EngineResponse response = EngineResponse::OfCopy({answer.body.begin(), answer.body.end()});
    const bool hasType = std::ranges::any_of(
        answer.headers, [](const auto& header) { return isSameWord(header.first, "Content-Type"); });
    if (!hasType && !answer.body.empty()) {
        response.addHeader("Content-Type", "text/plain");
    }
    addHeaders(response, answer);
    return queueAnswer(server, &context, connection, response, answer.status);
}

} // namespace

std::optional<Verdict> answerOpening(http::HttpServer& server, RequestContext& context, EngineConnection connection,
                                     const char* method, const char* version, const StrictHead* strict) {
    if (connection.header("Upgrade").data() == nullptr) {
        return std::nullopt;
    }
    const RequestHead head =
        strict != nullptr ? strict->head : RequestHead{method, context.fullUrl, version, connection.headers()};
    if (!asksForUpgrade(head)) {
        return std::nullopt;
    }
    if (server.isDraining()) {
        return answerRefusal(server, context, connection, Drained);
    }
    const OpeningHead opening = checkOpening(head, connection.announcedBodyBytes() != 0U);
    switch (opening.verdict) {
    case OpeningHead::Verdict::OtherVersion:
        return answerUpgradeRequired(server, context, connection);
    case OpeningHead::Verdict::Bad:
        return answerRefusal(server, context, connection, {BadRequest, opening.reason});
    case OpeningHead::Verdict::Good:
        break;
    }
    OpeningRequest request(*server.getHttpImplementation());
    std::optional<StrictHead> ofRequest;
    if (strict != nullptr) {
        ofRequest = *strict;
    }
    const http::ServerOptions& options = ServerAccess::options(server);
    fileHead(request, connection, context.client, options.getFiling(), method, std::string(context.fullUrl),
             ofRequest ? &*ofRequest : nullptr);
    const std::string host = hostOf(connection, strict);
    const Opening shown(request, head, opening, host, isTls(connection));
    http::WebSocketAcceptor& acceptor = *options.getWebSocketAcceptor();
    const SessionSettings& settings = *ServerAccess::sessions(server)->settings();
    if (!isOriginAllowed(acceptor, settings, shown)) {
        qlLogObject(qlLogType::Engine, "httpserver")
            << "Refusing a WebSocket of a page from '" << withoutControls(shown.origin()) << "' : the Host is '"
            << withoutControls(host) << "'";
        return answerRefusal(server, context, connection, ForeignOrigin);
    }
    http::WebSocketAnswer decision = acceptor.decide(http::WebSocketOpening(shown));
    AnswerData& answer = AnswerData::of(decision);
    if (context.recording) {
        context.recording->note(std::move(answer.notes));
    }
    switch (answer.kind) {
    case AnswerData::Kind::Accept:
        return accept(server, context, connection, opening, answer);
    case AnswerData::Kind::Refuse:
        return refuse(server, context, connection, answer);
    case AnswerData::Kind::Pass:
        break;
    }
    return std::nullopt;
}

} // namespace ql::impl
