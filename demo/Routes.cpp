#include "Routes.h"

#include "DemoServer.h"
#include "EventRoutes.h"
#include "StreamRoutes.h"
#include "page/Page.h"
#include "vireo/Vireo.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace demo {

namespace {

using Pause = DemoRequest::Pause;
using Type = ql::HttpBaseRequest::RequestType;

/// Keeps its members in the order in which they are written here.
using Json = nlohmann::ordered_json;

constexpr int Get = static_cast<int>(Type::Get) | static_cast<int>(Type::Head);
constexpr int Post = static_cast<int>(Type::Post);
constexpr int Any = 0xFFFF;
/// What asks for no content of ours is left out: a 200 for CONNECT would promise a tunnel, one for TRACE the request
/// itself.
constexpr int AnyContent =
    Any & ~static_cast<int>(Type::Connect) & ~static_cast<int>(Type::Trace) & ~static_cast<int>(Type::Unknown);

/// Text from a client may be anything; a byte that is not UTF-8 becomes U+FFFD.
std::string dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// One of the page's files. Whatever the page needs comes from here, so that it may be told to run nothing else.
Pause page(DemoRequest& request) {
    const PageFile& file = *pageFile(request.getParsedUrl().getDecodedPath()); // or it had no such route
    request.response().setHeader("Cache-Control", "no-cache");
    request.response().setHeader("ETag", file.tag);
    request.response().setHeader("X-Content-Type-Options", "nosniff");
    request.response().setHeader("Content-Security-Policy", "default-src 'self'; base-uri 'self'; form-action 'self'");
    request.response().setHeader("X-Frame-Options", "DENY");
    request.response().setHeader("Referrer-Policy", "no-referrer");
    const bool isKnown = request.header("if-none-match") == file.tag;
    request.answer(isKnown ? 304 : 200, file.type, isKnown ? std::string_view() : file.bytes);
    return {};
}

Pause hello(DemoRequest& request) {
    request.answer(200, "text/plain", "hello world\n");
    return {};
}

const char* nameOf(ql::HttpBaseRequest::ParseErrorKind kind) {
    using Kind = ql::HttpBaseRequest::ParseErrorKind;
    switch (kind) {
    case Kind::None:
        break;
    case Kind::Method:
        return "method";
    case Kind::Target:
        return "target";
    case Kind::HeaderName:
        return "name of a header";
    case Kind::HeaderValue:
        return "header";
    case Kind::Cookie:
        return "cookie";
    case Kind::Query:
        return "argument of the query";
    case Kind::Memory:
        return "memory";
    case Kind::Other:
        return "other";
    }
    return "none";
}

Pause inspect(DemoRequest& request) {
    Json result = {
        {"method", ql::HttpBaseRequest::RequestTypeToString(request.getRequestType())},
        {"url", request.getOriginalRequestUrl()},
        {"path", request.getParsedUrl().getDecodedPath()},
        {"headers", request.getHeaders().getAll()},
        {"cookies", request.getCookies()},
        {"query", request.getQueryParameters()},
        {"clientAddress", request.getClientAddress().toString()},
        {"parseError", request.hasParseError() ? Json(request.getParseError()) : Json()},
    };
    if (request.hasParseError()) {
        result["parseErrorKind"] = nameOf(request.getParseErrorKind());
        result["parseErrorField"] = request.getParseErrorField();
    }
    request.answer(request.hasParseError() ? 400 : 200, "application/json", dump(result));
    return {};
}

Pause stats(DemoRequest& request) {
    const Statistics::Counters counters = request.server().statistics().snapshot();
    const Json result = {
        {"version", Vireo::Version::GetDescStringMajorMinorRelease(true)},
        {"requestsServed", counters.requestsServed},
        {"requestsActive", counters.requestsActive},
        {"bytesIn", counters.bytesIn},
        {"bytesOut", counters.bytesOut},
        {"abnormalEnds", counters.abnormalEnds},
        {"webSocketsOpen", counters.webSocketsOpen},
        {"webSocketsAccepted", counters.webSocketsAccepted},
        {"webSocketMessagesIn", counters.messagesIn},
        {"webSocketMessagesOut", counters.messagesOut},
    };
    request.answer(200, "application/json", dump(result));
    return {};
}

/// Of who asks for no upgrade. With the library's defaults that is a browser, too: it asks for "websocket" in lower
/// case.
Pause webSocketNotUpgraded(DemoRequest& request) {
    request.response().setHeader("Upgrade", "WebSocket");
    request.answer(426, "text/plain",
                   "Here is a WebSocket. With --defined it starts with \"Upgrade: WebSocket\", spelled so, which a\n"
                   "browser does not: it gets here through the reverse proxy of examples/reverse-proxy then.\n");
    return {};
}

Pause notFound(DemoRequest& request) {
    request.answer(404, "text/plain", "there is nothing here\n");
    return {};
}

Pause parseError(DemoRequest& request) {
    request.answer(400, "text/plain", request.getParseError() + "\n");
    return {};
}

Pause methodNotAllowed(DemoRequest& request) {
    request.answer(405, "text/plain", "this path does not take this method\n");
    return {};
}

/// For a proxy, which is to send nobody here any more when the server is about to go.
Pause health(DemoRequest& request) {
    const bool isDraining = request.server().isDraining();
    request.answer(isDraining ? 503 : 200, "text/plain", isDraining ? "draining\n" : "ok\n");
    return {};
}

Pause metrics(DemoRequest& request) {
    const ql::http::ExchangeMetrics* const metrics = request.server().metrics();
    if (metrics == nullptr) {
        return notFound(request);
    }
    request.answer(200, ql::http::ExchangeMetrics::OpenMetricsContentType, metrics->toOpenMetrics());
    return {};
}

/// What Ctrl-C does, for who may not press it.
Pause drain(DemoRequest& request) {
    if (!request.server().offersDrain()) {
        return notFound(request);
    }
    // A page from elsewhere can have a browser POST, but not with a header of its own.
    if (request.header("x-drain").empty()) {
        request.answer(403, "text/plain", "this takes a header X-Drain\n");
        return {};
    }
    request.server().askForDrain();
    request.answer(202, "text/plain", "draining\n");
    return {};
}

Pause events(DemoRequest& request) {
    return request.getRequestType() == Type::Post ? publishEvent(request) : listenToEvents(request);
}

const Route Routes[] = {
    {"/", page, Get, Route::Place::DaemonThread},
    {"/page.css", page, Get, Route::Place::DaemonThread},
    {"/page.js", page, Get, Route::Place::DaemonThread},
    {"/icon.svg", page, Get, Route::Place::DaemonThread},
    {"/hello", hello, Get, Route::Place::Worker},
    {"/inline", hello, Get, Route::Place::DaemonThread},
    {"/echo", echo, Post, Route::Place::Worker},
    {"/upload", upload, Post, Route::Place::Worker},
    {"/download", download, Get, Route::Place::Worker},
    {"/stream", stream, Get, Route::Place::Worker},
    {"/slow", slow, Get, Route::Place::Worker},
    {"/events", events, Get | Post, Route::Place::Worker},
    {"/inspect", inspect, AnyContent, Route::Place::Worker},
    {"/stats", stats, Get, Route::Place::DaemonThread},
    {"/healthz", health, Get, Route::Place::DaemonThread},
    {"/drain", drain, Post, Route::Place::Worker},
    {"/metrics", metrics, Get, Route::Place::Worker},
    {"/ws", webSocketNotUpgraded, Get, Route::Place::DaemonThread},
};

const Route NotFound = {"", notFound, Any, Route::Place::DaemonThread};
const Route ParseError = {"", parseError, Any, Route::Place::DaemonThread};
const Route MethodNotAllowed = {"", methodNotAllowed, Any, Route::Place::DaemonThread};

/// @return null when there is none.
const Route* routeOfPath(const DemoRequest& request) {
    const auto* const route = std::find_if(std::begin(Routes), std::end(Routes), [&](const Route& candidate) {
        return request.getParsedUrl().getDecodedPath() == candidate.path;
    });
    return route == std::end(Routes) ? nullptr : route;
}

} // namespace

const Route& findRoute(DemoRequest& request) {
    const Route* const route = routeOfPath(request);
    if (request.hasParseError()) {
        // Inspection shows the parse error itself.
        return route != nullptr && route->handler == inspect ? *route : ParseError;
    }
    if (route == nullptr) {
        return NotFound;
    }
    if ((route->methods & static_cast<int>(request.getRequestType())) == 0) {
        request.response().setHeader("Allow", ql::HttpBaseRequest::RequestTypeBitFieldToString(route->methods));
        return MethodNotAllowed;
    }
    return *route;
}

} // namespace demo
