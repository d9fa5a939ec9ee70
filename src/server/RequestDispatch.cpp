#include "server/RequestDispatch.h"

#include "engine/ConnectionTracking.h"
#include "engine/EngineResponse.h"
#include "engine/PeerEnd.h"
#include "frame/ExceptionLog.h"
#include "frame/HttpSyntax.h"
#include "request/Misuse.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "request/StrictIntake.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/Exchange.h"
#include "server/ExchangeCut.h"
#include "server/QueuedAnswer.h"
#include "server/RequestCompletion.h"
#include "server/RequestContext.h"
#include "server/RequestFiling.h"
#include "server/RequestRefusal.h"
#include "server/ServerAccess.h"
#include "server/SessionHandshake.h"
#include "server/WebSocketHandshake.h"
#include "session/Opening.h"
#include "streams/ChunkList.h"
#include "streams/FeedAccess.h"
#include "streams/ResponseWait.h"
#include "streams/WholeBody.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/RequestOwner.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlStringUtils.h"
#include "vireo/support/qlSystemUtils.h"

#include <charconv>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace ql::impl {

namespace {

using ResponseState = HttpResponseDevice::ResponseState;

/// A body of this size or more is streamed even if it is finished: it is not copied into one buffer.
constexpr std::uint64_t MinStreamedBytes = 536870912;
constexpr std::uint32_t NotModified = 304;
constexpr std::uint32_t InternalServerError = 500;

RequestContext& contextIn(void*& slot) {
    if (slot == &lostContext) {
        throw std::bad_alloc();
    }
    // An application's own daemon may do without the callback that makes it.
    if (slot == nullptr) {
        slot = std::make_unique<RequestContext>(nullptr).release();
    }
    return *static_cast<RequestContext*>(slot);
}

/// What is to be done about a response.
enum class AnswerStep {
    Wait, ///< it is not released
    None, ///< it is queued already
    Fail,
    StreamOpenBody,
    StreamEndedBody,
    Copy,
    Buffer,
    File,
};

/// What one of them needs.
struct AnswerBody {
    std::vector<char> copied;
    std::string_view buffer;
    std::optional<FileBody> file;
};

/// Decides under the device's lock, and takes note of it there; what follows from it needs no lock.
/// @param body filled for the last three.
AnswerStep takeAnswerStep(HttpBaseRequest& request, AnswerBody& body) {
    HttpResponseDevice& device = request.editInternalResponseDevice();
    const qlMutexLocker locker(device.getLock());
    switch (device.getResponseState()) {
    case ResponseState::NotReady:
        return AnswerStep::Wait;
    case ResponseState::Streaming:
    case ResponseState::Buffered:
        return AnswerStep::None;
    case ResponseState::Ready:
        break;
    }
    request.resetWriteIdleCounter();
    if (device.hasDeviceError()) {
        return AnswerStep::Fail;
    }
    if (std::optional<WholeBody>& whole = RequestAccess::state(request).wholeBody; whole) {
        if (const auto* const buffer = std::get_if<BufferBody>(&whole->source)) {
            body.buffer = buffer->bytes;
            device.getData(body.copied); // there is none
            device.setResponseState(ResponseState::Buffered);
            return AnswerStep::Buffer;
        }
        body.file.emplace(std::get<FileBody>(std::move(whole->source)));
        whole.reset();
        device.setResponseState(ResponseState::Streaming);
        return AnswerStep::File;
    }
    const bool bodyEnded = device.isEndSending();
    if (bodyEnded && device.getDataSize() < MinStreamedBytes) {
        device.getData(body.copied);
        device.setResponseState(ResponseState::Buffered);
        return AnswerStep::Copy;
    }
    device.setResponseState(ResponseState::Streaming);
    return bodyEnded ? AnswerStep::StreamEndedBody : AnswerStep::StreamOpenBody;
}

/// The Content-Length that the application gives, for an answer that leaves its body out.
std::optional<std::uint64_t> declaredLength(const HttpResponseInterface& description) {
    for (const auto& [key, header] : description.getHeaders()) {
        const auto& [name, value] = header;
        std::uint64_t length = 0;
        const char* const end = value.data() + value.size();
        if (isSameWord(name, "Content-Length") && std::from_chars(value.data(), end, length).ptr == end &&
            !value.empty()) {
            return length;
        }
    }
    return std::nullopt;
}

bool expectsContinue(EngineConnection connection) {
    std::string expectation(connection.header("Expect"));
    qlStringUtils::toLower(expectation);
    return expectation == "100-continue";
}

/// Nobody is left to whom a body means anything.
bool isBodyUnwanted(HttpBaseRequest& request) {
    const HttpResponseDevice& device = request.editInternalResponseDevice();
    return device.isEndSending() || device.hasDeviceError();
}

/// Tells the owner of a body that somebody wants, once.
void tellOfBody(RequestContext& context, bool isWhole) {
    if (!context.exchange || context.isBodyTold) {
        return;
    }
    HttpBaseRequest& request = *context.request;
    const auto& owner = context.serving->options.getRequestOwner();
    if (owner && request.getAnnouncedBodyBytes() != 0U && !isBodyUnwanted(request) &&
        !RequestAccess::feed(request).hasDeviceError()) {
        context.isBodyTold = true;
        owner->onBodyReady(request, isWhole);
    }
}

/// Holds a piece back as long as the reader is too far behind.
/// @return false when the connection is suspended: the piece stays with the engine. Had it been taken, the engine might
/// go on to the next one in its buffer all the same.
bool makeRoom(RequestContext& context, std::size_t size) {
    Exchange& exchange = *context.exchange;
    HttpBaseRequest& request = *context.request;
    // Not the last one: it fits in by and by, and the engine reads nothing more that it could lose at a resumption.
    while (size != exchange.bodyLeft() && !isBodyUnwanted(request) &&
           !FeedAccess::hasRoom(RequestAccess::feed(request), size)) {
        tellOfBody(context, false);
        nameMutualWait(request);
        switch (exchange.suspend()) {
        case Exchange::Suspension::Outcome::Suspended:
            return false;
        case Exchange::Suspension::Outcome::LookAgain:
            break;
        case Exchange::Suspension::Outcome::Finished:
            return true;
        }
    }
    return true;
}

/// Spares the engine the time until the watch looks again.
void showPeerEndOf(const ClientConnection& client) {
    if (client.hasPeerEnded()) {
        showPeerEnd(client.socket());
    }
}

void cut(ClientConnection& client, CutReason reason) {
    const qlMutexLocker gate(client.gate());
    cutExchange(client, reason);
}

/// The application's answer is not sent: lets go of whoever writes its body.
void abandonResponse(HttpBaseRequest& request) noexcept {
    HttpResponseDevice& device = request.editInternalResponseDevice();
    const qlMutexLocker locker(device.getLock());
    reportLoss(device, "InternalError");
}

} // namespace

Verdict RequestDispatch::handleCall(const char* data, std::size_t& dataSize, void*& slot) noexcept {
    // Whatever becomes of them, the engine is told that all bytes were consumed: what is left behind makes it answer
    // with an error of its own, unless its connection is suspended.
    const std::size_t size = std::exchange(dataSize, 0);
    RequestContext* context = nullptr;
    try {
        context = &contextIn(slot);
        if (context->request == nullptr) {
            return takeHead(*context);
        }
        if (context->exchange && context->exchange->isCut()) {
            return Verdict::Close;
        }
        if (context->exchange && context->exchange->phase() == Exchange::Phase::Head) {
            return decideAtHead(*context);
        }
        if (size != 0) {
            if (!context->exchange) {
                takeBody(*context->request, data, size);
            } else if (isBodyTooLong(*context, size)) {
                cut(*context->client, CutReason::BodyTooLarge);
                return Verdict::Close;
            } else if (!takeBodyOfExchange(*context, data, size)) {
                dataSize = size;
            }
            return Verdict::Continue;
        }
        const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
        endBody(*context, nowMs);
        tellOfBody(*context, true);
        return answerWhenReady(*context, nowMs);
    } catch (...) {
        logCurrentException("a request", "httpserver");
        if (context != nullptr && context->request != nullptr) {
            abandonResponse(*context->request);
            if (context->exchange) {
                context->exchange->setPhase(Exchange::Phase::Answered);
            }
        }
        return answerInternalError(context);
    }
}

Verdict RequestDispatch::takeHead(RequestContext& context) {
    wait_.progress();
    if (context.recording) {
        context.recording->noteHead(connection_, method_, version_);
    }
    if (server_.shouldExit()) {
        qlLogObject(qlLogType::Engine) << "Discarding http request, server is shutting down";
        noteEnding(context, http::ExchangeRecord::Ending::Refused, "the server stops");
        return Verdict::Close;
    }
    if (ConnectionRecord* const record = connection_.record()) {
        ++record->requestCount;
        if (record->tls.isOn() && !record->tls.meetPeer(connection_.tlsSession())) {
            noteEnding(context, http::ExchangeRecord::Ending::Refused, "no good certificate of the client");
            return Verdict::Close;
        }
    }
    if (context.serving != nullptr && context.client == nullptr) {
        return Verdict::Close; // for want of memory, which is in the log
    }
    const http::ServerOptions& options = ServerAccess::options(server_);
    std::optional<StrictHead> strict;
    if (options.isStrictHttp()) {
        RequestHead head{method_, context.fullUrl, version_, connection_.headers()};
        HeadVerdict verdict = checkHead(head, options.getMethods());
        if (verdict.status != 0) {
            return answerRefusal(server_, context, connection_, {verdict.status, verdict.reason});
        }
        strict = {std::move(head), std::move(verdict)};
    }
    if (context.serving != nullptr || strict) {
        if (const auto refusal = findRefusal(server_, options, connection_)) {
            return answerRefusal(server_, context, connection_, *refusal);
        }
    }
    if (const std::optional<Verdict> answered = answerUpgrade(context, strict ? &*strict : nullptr)) {
        return *answered;
    }
    createRequest(context, strict ? &*strict : nullptr);
    if (context.serving == nullptr) {
        // While there may be no memory for it: later nobody could be told.
        (void)RequestAccess::feed(*context.request);
        server_.getHttpImplementation()->handleRequest(context.request);
        return Verdict::Continue;
    }
    beginExchange(context);
    server_.getHttpImplementation()->handleRequest(context.request);
    return decideAtHead(context);
}

std::optional<Verdict> RequestDispatch::answerUpgrade(RequestContext& context, const StrictHead* strict) {
    if (ServerAccess::sessions(server_) != nullptr) {
        return answerOpening(server_, context, connection_, method_, version_, strict);
    }
    if (strict != nullptr) {
        if (server_.getParameters().webSocketEnabled && isOpening(strict->head)) {
            return answerStrictWebSocketUpgrade(server_, context, connection_);
        }
    } else if (isWebSocketUpgrade(connection_)) {
        return answerWebSocketUpgrade(server_, context, connection_, method_, version_);
    }
    return std::nullopt;
}

void RequestDispatch::createRequest(RequestContext& context, StrictHead* strict) {
    context.request = server_.getHttpImplementation()->createRequest();
    if (context.request == nullptr) {
        throw std::runtime_error("createRequest made no request");
    }
    context.server = &server_;
    HttpBaseRequest& request = *context.request;
    request.setOpaquePtr(connection_.handle());
    if (!context.receiveTimer.isTimeSnapped()) {
        context.receiveTimer.restart();
    }
    fileHead(request, connection_, context.client, ServerAccess::options(server_).getFiling(), method_,
             std::move(context.fullUrl), strict);
}

void RequestDispatch::beginExchange(RequestContext& context) {
    HttpBaseRequest& request = *context.request;
    RequestState& state = RequestAccess::state(request);
    state.announcedBodyBytes = connection_.announcedBodyBytes();
    RequestAccess::prepareFeed(request, context.serving->uploadWindowBytes, state.announcedBodyBytes != 0U);
    ClientConnection& client = *context.client;
    context.exchange = std::make_shared<Exchange>(
        connection_, client.socket(), state.announcedBodyBytes.value_or(Exchange::UnknownLength), client.marks());
    state.wait = context.exchange;
    client.beginExchange(request, context.exchange);
}

Verdict RequestDispatch::decideAtHead(RequestContext& context) {
    Exchange& exchange = *context.exchange;
    HttpBaseRequest& request = *context.request;
    const std::uint64_t length = exchange.bodyLeft();
    // A body that fits into the window is not worth the connection, which an answer before the body costs.
    bool isDecided = length == 0 || (length <= context.serving->uploadWindowBytes && !expectsContinue(connection_));
    while (!isDecided) {
        if (exchange.isCut()) {
            return Verdict::Close;
        }
        if (request.editInternalResponseDevice().getResponseState() != ResponseState::NotReady) {
            return answer(context, request.getResponse(), qlSystemUtils::GetTimeBaseMs());
        }
        if (FeedAccess::hasReader(RequestAccess::feed(request))) {
            break;
        }
        switch (exchange.suspend()) {
        case Exchange::Suspension::Outcome::Suspended:
            return Verdict::Continue;
        case Exchange::Suspension::Outcome::LookAgain:
            break;
        case Exchange::Suspension::Outcome::Finished:
            isDecided = true;
        }
    }
    exchange.setPhase(Exchange::Phase::Body);
    if (length != 0) {
        showPeerEndOf(*context.client);
    }
    return Verdict::Continue;
}

void RequestDispatch::takeBody(HttpBaseRequest& request, const char* data, std::size_t size) {
    if (!request.editInternalResponseDevice().isEndSending()) {
        RequestAccess::feed(request).feed(data, size);
    }
    wait_.progress();
}

bool RequestDispatch::takeBodyOfExchange(RequestContext& context, const char* data, std::size_t size) {
    Exchange& exchange = *context.exchange;
    HttpBaseRequest& request = *context.request;
    HttpReceiveDevice& feed = RequestAccess::feed(request);
    if (!makeRoom(context, size)) {
        return false;
    }
    if (isBodyUnwanted(request)) {
        FeedAccess::fail(feed, AnsweredEarly);
    } else {
        feed.feed(data, size);
    }
    exchange.countBody(size);
    if (exchange.bodyLeft() != 0) {
        showPeerEndOf(*context.client);
    }
    return true;
}

void RequestDispatch::endBody(RequestContext& context, std::int64_t nowMs) {
    // First, so that who sees the end of a body has it.
    RequestAccess::setReadDuration(*context.request, context.receiveTimer.getElapsedMs(nowMs));
    if (HttpReceiveDevice* const feed = RequestAccess::feedOfBody(*context.request)) {
        const qlMutexLocker locker(feed->getLock());
        feed->endFeed();
    }
    if (context.exchange && !context.exchange->hasWholeBody()) {
        context.exchange->setPhase(Exchange::Phase::Ended);
    }
    if (context.recording) {
        context.recording->reach(ExchangeRecording::Phase::Wait, nowMs);
    }
}

bool RequestDispatch::isStrict() const {
    return ServerAccess::options(server_).isStrictHttp();
}

bool RequestDispatch::isHead() const {
    return std::string_view(method_) == "HEAD";
}

ResponseWait& RequestDispatch::waitOf(const RequestContext& context) {
    return context.exchange ? *context.exchange : wait_;
}

Verdict RequestDispatch::answerWhenReady(RequestContext& context, std::int64_t nowMs) {
    HttpBaseRequest& request = *context.request;
    HttpResponseInterface& description = request.getResponse();
    // Unlocked, so that polling is cheap; decided again under the lock.
    if (request.editInternalResponseDevice().getResponseState() == ResponseState::NotReady) {
        nameMissingRelease(request);
        waitOf(context).wait(request, nowMs);
        return Verdict::Continue;
    }
    return answer(context, description, nowMs);
}

Verdict RequestDispatch::answer(RequestContext& context, HttpResponseInterface& description, std::int64_t nowMs) {
    HttpBaseRequest& request = *context.request;
    ResponseWait& wait = waitOf(context);
    AnswerBody body;
    const AnswerStep step = takeAnswerStep(request, body);
    if (step == AnswerStep::Wait) {
        wait.wait(request, nowMs);
        return Verdict::Continue;
    }
    wait.progress();
    if (context.exchange) {
        context.exchange->setPhase(Exchange::Phase::Answered);
    }
    if (step == AnswerStep::Fail) {
        return answerInternalError(&context);
    }
    if (step != AnswerStep::None && isStrict()) {
        const bool isNotModified = description.getStatusCode() == NotModified;
        const auto length = isNotModified || isHead() ? declaredLength(description) : std::nullopt;
        if (isNotModified || length) {
            return answerWithoutBody(context, description, length);
        }
    }
    switch (step) {
    case AnswerStep::Wait:
    case AnswerStep::None:
    case AnswerStep::Fail:
        break;
    case AnswerStep::StreamOpenBody:
        return answerStream(context, description, false);
    case AnswerStep::StreamEndedBody:
        return answerStream(context, description, true);
    case AnswerStep::Copy:
        return answerCopy(context, description, std::move(body.copied));
    case AnswerStep::Buffer:
        return queue(context, description, EngineResponse::OfText(body.buffer));
    case AnswerStep::File:
        return answerFile(context, description, std::move(*body.file));
    }
    return Verdict::Continue;
}

Verdict RequestDispatch::answerStream(RequestContext& context, HttpResponseInterface& description, bool bodyEnded) {
    HttpBaseRequest& request = *context.request;
    std::optional<std::uint64_t> length;
    const std::int64_t declaredLength = description.getContentLength();
    if (declaredLength >= 0) {
        length = static_cast<std::uint64_t>(declaredLength);
    } else if (bodyEnded) {
        length = request.editInternalResponseDevice().getDataSize();
    }
    return queue(context, description, EngineResponse::OfStream(request, length, isHead()));
}

Verdict RequestDispatch::answerWithoutBody(RequestContext& context, const HttpResponseInterface& description,
                                           std::optional<std::uint64_t> length) {
    HttpBaseRequest& request = *context.request;
    return queue(context, description,
                 length ? EngineResponse::OfStream(request, length, true) : EngineResponse::OfNoLength(request));
}

Verdict RequestDispatch::answerCopy(RequestContext& context, HttpResponseInterface& description,
                                    std::vector<char>&& body) {
    EngineResponse response = EngineResponse::OfCopy(body);
    recycleChunk(std::move(body));
    return queue(context, description, std::move(response));
}

Verdict RequestDispatch::answerFile(RequestContext& context, HttpResponseInterface& description, FileBody&& body) {
    const bool isEncrypted = connection_.tlsSession() != nullptr;
    return queue(context, description, EngineResponse::OfFile(*context.request, std::move(body), isEncrypted));
}

Verdict RequestDispatch::queue(RequestContext& context, const HttpResponseInterface& description,
                               EngineResponse&& response) {
    RequestAccess::setWriteStart(*context.request, qlSystemUtils::GetTimeBaseMs());
    RequestAccess::addHeaderSentBytes(*context.request, isStrict() ? response.addCheckedHeadersAndCookies(description)
                                                                   : response.addHeadersAndCookies(description));
    return queueAnswer(server_, &context, connection_, response, description.getStatusCode());
}

Verdict RequestDispatch::answerInternalError(RequestContext* context) noexcept {
    EngineResponse response = EngineResponse::OfText(server_.getHttpImplementation()->getDefaultInternalError());
    if (context != nullptr) {
        noteEnding(*context, http::ExchangeRecord::Ending::Failed, "internal error");
    }
    return queueAnswer(server_, context, connection_, response, InternalServerError);
}

} // namespace ql::impl
