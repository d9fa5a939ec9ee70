#include "app/sockets/AppAcceptor.h"

#include "app/kernel/Chain.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/HandlerMark.h"
#include "app/kernel/Reason.h"
#include "app/kernel/Service.h"
#include "app/sockets/AppSession.h"
#include "app/sockets/OpeningRequest.h"
#include "app/sockets/OpeningState.h"
#include "frame/HttpSyntax.h"
#include "vireo/support/IpAddress.h"
#include "vireo/support/qlLog.h"

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace vireo::impl {

namespace {

using ql::http::WebSocketAnswer;

constexpr std::string_view HandshakePrefix = "Sec-WebSocket-";
constexpr int LeastRefusal = static_cast<int>(WebSocketAnswer::MinRefusal);

/// What a middleware may have set for answers to requests, and the core says to openings.
bool isOfTheHandshake(std::string_view name) {
    return ql::impl::isSameWord(name, "Connection") || ql::impl::isSameWord(name, "Upgrade") ||
           ql::impl::isSameWord(name.substr(0, HandshakePrefix.size()), HandshakePrefix);
}

/// Runs the chain and the handler. What comes of it is in `state` and `answer`.
void ask(const Work& work, Request& request, ResponseState& response, OpeningState& state) {
    const Endpoint& endpoint = *work.endpoint;
    std::exception_ptr failure;
    try {
        Response its = ResponseAccess::Of(response);
        runChain(endpoint, request, its, [&] {
            SocketOpening opening(state);
            (*endpoint.socket)(request, opening);
        });
    } catch (...) {
        failure = std::current_exception();
    }
    Answer& answer = response.answer;
    state.isAccepted = state.isAccepted && !failure && !answer.isSet;
    if (state.isAccepted) {
        answer.isSet = true; // for who asks in a hook
    } else if (!failure && answer.isSet && answer.status < LeastRefusal) {
        qlLogObject(qlLogType::Failure, "app")
            << lineBegin(endpoint, response) << ": a WebSocket cannot be refused with " << answer.status;
        answer.setError(500, "internal error");
    } else if (!failure && answer.file) {
        qlLogObject(qlLogType::Failure, "app")
            << lineBegin(endpoint, response) << ": a WebSocket cannot be refused with so large a file";
        answer.setError(answer.status, reasonPhrase(answer.status));
    }
    finishAnswer(endpoint, request, response, failure);
}

} // namespace

AppAcceptor::AppAcceptor(std::shared_ptr<Service> service) : service_(std::move(service)) {}

AppAcceptor::~AppAcceptor() = default;

bool AppAcceptor::isOriginAllowed(const ql::http::WebSocketOpening& opening) {
    const OpeningRequest request(opening.getRequest(), service_->plan().proxies);
    return request.data().head.isFrom(opening.getOrigin());
}

WebSocketAnswer AppAcceptor::decide(const ql::http::WebSocketOpening& opening) {
    const ServicePlan& plan = service_->plan();
    auto request = std::make_unique<OpeningRequest>(opening.getRequest(), plan.proxies);
    HeadView& head = request->data().head;
    if (head.split() != HeadView::Fault::None) {
        return WebSocketAnswer::Pass();
    }
    const Match match = plan.table.match(SocketMethod, head.segments());
    if (match.outcome != Match::Outcome::Found) {
        return WebSocketAnswer::Pass();
    }
    head.setMatch(match);

    const HandlerMark mark(*service_->app());
    const Work work{service_, match.endpoint};
    ResponseState response{Answer(), request->data(), nullptr, &work, ResponseState::Holder::Opening};
    OpeningState state(opening, head, response.answer);
    ask(work, request->data().request, response, state);
    request->leaveCore();

    std::optional<ql::IpAddress> client;
    std::string id;
    if (service_->isRecording()) {
        client = head.clientAddress();
        id = head.id();
    }
    const Answer& answer = response.answer;
    const bool isAccepted = state.isAccepted && answer.status < LeastRefusal;
    WebSocketAnswer told =
        isAccepted ? WebSocketAnswer::Accept(std::make_unique<AppSession>(
                         service_->app(), match.endpoint->label(), std::move(request), std::move(state.handlers)))
                   : WebSocketAnswer::Refuse(static_cast<std::uint32_t>(answer.status), answer.body);
    for (const auto& [key, line] : answer.headers.asMap()) {
        if (!isOfTheHandshake(line.first)) {
            told.addHeader(line.first, line.second);
        }
    }
    if (client) {
        told.setRecordClient(*client);
        told.setRecordId(std::move(id));
    }
    if (isAccepted) {
        if (!state.subprotocol.empty()) {
            told.setSubprotocol(std::move(state.subprotocol));
        }
        if (state.options) {
            told.setOptions(*state.options);
        }
    }
    return told;
}

} // namespace vireo::impl
