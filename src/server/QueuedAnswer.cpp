#include "server/QueuedAnswer.h"

#include "engine/EngineResponse.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/RequestContext.h"
#include "vireo/HttpServer.h"

namespace ql::impl {

namespace {

/// Whether its connection brings no further request.
bool isLast(const http::HttpServer& server, const RequestContext* context) {
    if (server.isDraining()) {
        return true;
    }
    if (context == nullptr || context->client == nullptr) {
        return false;
    }
    const std::uint32_t limit = context->serving->options.getMaxRequestsPerConnection();
    return limit != 0 && context->client->requestCount >= limit;
}

} // namespace

Verdict queueAnswer(const http::HttpServer& server, RequestContext* context, EngineConnection connection,
                    EngineResponse& response, std::uint32_t status) noexcept {
    if (isLast(server, context)) {
        response.close();
    }
    if (context == nullptr) {
        return response.queue(connection, status);
    }
    if (context->client != nullptr) {
        context->client->setAnsweredEarly(!context->exchange || !context->exchange->hasWholeBody());
    }
    const Verdict verdict = response.queue(connection, status);
    if (context->recording) {
        if (verdict == Verdict::Continue) {
            context->recording->noteAnswer(status, response.headerBytes(), response.bodyBytes());
        } else {
            noteEnding(*context, http::ExchangeRecord::Ending::Failed, "the engine took no answer");
        }
    }
    return verdict;
}

void noteEnding(RequestContext& context, http::ExchangeRecord::Ending ending, std::string_view reason) noexcept {
    if (context.recording) {
        context.recording->noteEnding(ending, reason);
    }
}

} // namespace ql::impl
