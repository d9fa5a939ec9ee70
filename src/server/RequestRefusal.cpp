#include "server/RequestRefusal.h"

#include "engine/EngineResponse.h"
#include "server/EventServing.h"
#include "server/QueuedAnswer.h"
#include "server/RequestContext.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"

namespace ql::impl {

namespace {

constexpr std::uint32_t BodyTooLarge = 413;
constexpr std::uint32_t HeadTooLarge = 431;
constexpr std::uint32_t ServiceUnavailable = 503;

} // namespace

std::optional<RequestRefusal> findRefusal(const http::HttpServer& server, const http::ServerOptions& options,
                                          EngineConnection connection) {
    if (server.isDraining() && options.getDrainAnswer() == http::ServerOptions::DrainAnswer::Refuse) {
        return RequestRefusal{ServiceUnavailable, "the server is being drained"};
    }
    const std::uint64_t maxHead = options.getMaxHeadBytes();
    if (maxHead != 0 && connection.headBytes() > maxHead) {
        return RequestRefusal{HeadTooLarge, "the head is too large"};
    }
    const std::uint64_t maxBody = options.getMaxBodyBytes();
    if (maxBody != 0 && connection.announcedBodyBytes().value_or(0) > maxBody) {
        return RequestRefusal{BodyTooLarge, "the body is too large"};
    }
    return std::nullopt;
}

Verdict answerRefusal(const http::HttpServer& server, RequestContext& context, EngineConnection connection,
                      const RequestRefusal& refusal) {
    noteEnding(context, http::ExchangeRecord::Ending::Refused, refusal.reason);
    EngineResponse response = EngineResponse::OfText(refusal.reason);
    response.addHeader("Content-Type", "text/plain");
    if (refusal.status == ServiceUnavailable) {
        response.addHeader("Retry-After", "1");
    }
    response.close();
    return queueAnswer(server, &context, connection, response, refusal.status);
}

bool isBodyTooLong(const RequestContext& context, std::size_t pieceBytes) {
    const std::uint64_t limit = context.serving->options.getMaxBodyBytes();
    return limit != 0 && pieceBytes > limit - context.exchange->receivedBytes();
}

} // namespace ql::impl
