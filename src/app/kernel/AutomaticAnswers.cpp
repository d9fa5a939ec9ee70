#include "app/kernel/AutomaticAnswers.h"

#include "app/kernel/Answer.h"
#include "app/kernel/Chain.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/Service.h"
#include "app/kernel/Work.h"
#include "app/request/RequestData.h"
#include "app/routing/RouteTable.h"
#include "vireo/app/HttpError.h"

#include <exception>
#include <string>
#include <utility>

namespace vireo::impl {

namespace {

/// Answers as if a handler had thrown the error, but that the middlewares around see an answer.
void setError(Request& request, Response& response, const HttpError& error) {
    ResponseState& state = ResponseAccess::state(response);
    setFailure(*state.work->endpoint, request, state, std::make_exception_ptr(error));
}

} // namespace

std::shared_ptr<const Endpoint> automaticEndpoint(const HeadView& head, const Match& match, const RouteTable& table) {
    Handler handler;
    std::shared_ptr<const Handler> own;
    const bool isOptions = head.method() == "OPTIONS";
    if (match.outcome == Match::Outcome::SocketOnly) {
        handler = [](Request& request, Response& response) {
            setError(request, response, HttpError(426).header("Connection", "Upgrade").header("Upgrade", "websocket"));
        };
    } else if (match.outcome == Match::Outcome::ToggledSlash) {
        handler = [](Request& request, Response& response) {
            response.redirect(RequestAccess::data(request).head.toggledTarget(), 308);
        };
    } else if (match.outcome == Match::Outcome::OtherMethod) {
        own = match.scope != nullptr && !isOptions ? match.scope->methodNotAllowed : nullptr;
        const std::string allow = table.allow(head.segments(), match.isBesideDirectories);
        if (isOptions) {
            handler = [allow](Request&, Response& response) {
                response.header("Allow", allow);
                response.empty(204);
            };
        } else {
            handler = [allow, own](Request& request, Response& response) {
                // Also where an error that is set or thrown in place of this one drops it.
                response.beforeSend([allow](Response& sent) {
                    if (sent.status() == 405 && sent.header("Allow").empty()) {
                        sent.header("Allow", allow);
                    }
                });
                if (own == nullptr) {
                    setError(request, response, HttpError(405).header("Allow", allow));
                } else {
                    response.error(405);
                    response.header("Allow", allow);
                    (*own)(request, response);
                }
            };
        }
    } else if (isOptions && head.rawPath() == "*") {
        handler = [](Request&, Response& response) { response.empty(204); };
    } else if (match.scope != nullptr && match.scope->notFound != nullptr) {
        own = match.scope->notFound;
        handler = [own](Request& request, Response& response) {
            response.status(404);
            (*own)(request, response);
        };
    } else {
        handler = [](Request& request, Response& response) { setError(request, response, HttpError(404)); };
    }
    auto endpoint = std::make_shared<Endpoint>();
    endpoint->method = head.method();
    endpoint->name = "none";
    endpoint->handler = std::make_shared<const Handler>(std::move(handler));
    endpoint->scope = match.scope;
    endpoint->isQuick =
        own == nullptr && (match.scope == nullptr || (match.scope->chain.empty() && match.scope->onError == nullptr));
    return endpoint;
}

std::shared_ptr<const Endpoint> endpointBelowGroup(const Endpoint& directory, std::shared_ptr<const ScopeRules> group) {
    const RouteRules& rules = directory;
    auto endpoint = std::make_shared<Endpoint>(rules);
    endpoint->scope = std::move(group);
    endpoint->maxBody = directory.maxBody;
    endpoint->isBelowGroup = true;
    // Who made the directory quick did not speak for the group's middlewares.
    endpoint->isQuick = false;
    return endpoint;
}

void answerBesideDirectories(Request& request, Response& response) {
    const Work& work = *ResponseAccess::state(response).work;
    const HeadView& head = RequestAccess::data(request).head;
    const RouteTable& table = work.service->plan().table;
    Match match = table.matchBesideDirectories(head.method(), head.segments());
    if (match.outcome == Match::Outcome::Nothing) {
        // Whose middlewares stand around.
        match.scope = work.endpoint->scope;
    }
    (*automaticEndpoint(head, match, table)->handler)(request, response);
}

std::shared_ptr<const Endpoint> endpointOfTooLargeBody(const Endpoint& route, std::uint64_t limit) {
    const RouteRules& rules = route;
    auto endpoint = std::make_shared<Endpoint>(rules);
    endpoint->scope = route.scope;
    // Not all of the body is there: who reads it in the chain waits for the client, which no daemon thread may.
    endpoint->isQuick = route.scope->chain.empty() && route.scope->onError == nullptr;
    endpoint->handler = std::make_shared<const Handler>([limit](Request&, Response&) {
        throw HttpError(413, "the body is larger than " + std::to_string(limit) + " bytes");
    });
    return endpoint;
}

} // namespace vireo::impl
