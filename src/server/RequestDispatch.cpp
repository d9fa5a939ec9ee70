#include "server/RequestDispatch.h"

#include "frame/ExceptionLog.h"
#include "request/Misuse.h"
#include "request/RequestAccess.h"
#include "server/ConnectionTracking.h"
#include "server/RequestContext.h"
#include "server/ResponseQueue.h"
#include "server/WebSocketHandshake.h"
#include "streams/ChunkList.h"
#include "streams/ContentReader.h"
#include "streams/ResponseWait.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ql::http {

namespace {

using ResponseState = HttpResponseDevice::ResponseState;

/// A body of this size or more is streamed even if it is finished: it is not copied into one buffer.
constexpr std::uint64_t MinStreamedBytes = 536870912;
/// How much of a streamed body the engine asks for at a time.
constexpr std::size_t StreamBlockBytes = 65536;

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
    Buffer,
};

/// Decides under the device's lock, and takes note of it there; what follows from it needs no lock.
/// @param body filled for Buffer.
AnswerStep takeAnswerStep(HttpBaseRequest& request, std::vector<char>& body) {
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
    const bool bodyEnded = device.isEndSending();
    if (bodyEnded && device.getDataSize() < MinStreamedBytes) {
        device.getData(body);
        device.setResponseState(ResponseState::Buffered);
        return AnswerStep::Buffer;
    }
    device.setResponseState(ResponseState::Streaming);
    return bodyEnded ? AnswerStep::StreamEndedBody : AnswerStep::StreamOpenBody;
}

IpAddress clientAddressOf(MHD_Connection* connection) {
    IpAddress address;
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (info != nullptr && info->client_addr != nullptr) {
        address.fromIP(info->client_addr);
    }
    return address;
}

} // namespace

MHD_Result RequestDispatch::handleCall(const char* method, const char* version, const char* data, std::size_t& dataSize,
                                       void*& slot) noexcept {
    // Whatever becomes of them, the engine is told that all bytes were consumed: what is left behind makes it answer
    // with an error of its own.
    const std::size_t size = std::exchange(dataSize, 0);
    try {
        RequestContext& context = contextIn(slot);
        if (context.request == nullptr) {
            return takeHead(context, method, version);
        }
        if (size != 0) {
            takeBody(*context.request, data, size);
            return MHD_YES;
        }
        const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
        endBody(context, nowMs);
        return answerWhenReady(context, nowMs);
    } catch (...) {
        impl::logCurrentException("a request", "httpserver");
        return answerInternalError();
    }
}

MHD_Result RequestDispatch::takeHead(RequestContext& context, const char* method, const char* version) {
    wait_.progress();
    if (server_.shouldExit()) {
        qlLogObject(qlLogType::Engine) << "Discarding http request, server is shutting down";
        return MHD_NO;
    }
    countRequest(connection_);
    if (isWebSocketUpgrade(connection_)) {
        return answerWebSocketUpgrade(server_, connection_, method, version);
    }
    createRequest(context, method);
    server_.getHttpImplementation()->handleRequest(context.request);
    return MHD_YES;
}

void RequestDispatch::createRequest(RequestContext& context, const char* method) {
    context.request = server_.getHttpImplementation()->createRequest();
    if (context.request == nullptr) {
        throw std::runtime_error("createRequest made no request");
    }
    HttpBaseRequest& request = *context.request;
    request.setOpaquePtr(connection_);
    if (!context.receiveTimer.isTimeSnapped()) {
        context.receiveTimer.restart();
    }
    request.setClientAddress(clientAddressOf(connection_));
    constexpr int Kinds = MHD_HEADER_KIND | MHD_COOKIE_KIND | MHD_GET_ARGUMENT_KIND;
    MHD_get_connection_values(connection_, static_cast<MHD_ValueKind>(Kinds), FileConnectionValue, &request);
    request.setHttpMethod(method);
    request.setOriginalFullUrl(std::move(context.fullUrl));
}

MHD_Result RequestDispatch::FileConnectionValue(void* closure, MHD_ValueKind kind, const char* name,
                                                const char* value) noexcept {
    HttpBaseRequest& request = *static_cast<HttpBaseRequest*>(closure);
    try {
        switch (kind) {
        case MHD_HEADER_KIND:
            request.addHeader(name, value == nullptr ? "" : value);
            break;
        case MHD_COOKIE_KIND:
            request.addCookie(name, value);
            break;
        case MHD_GET_ARGUMENT_KIND:
            request.addQueryParameter(name, value);
            break;
        default:
            break;
        }
    } catch (...) {
        // The application must see that something is missing. So short a text takes no memory.
        impl::RequestAccess::setParseError(request, "out of memory");
        impl::logCurrentException("request intake", "httpserver");
    }
    return MHD_YES;
}

void RequestDispatch::takeBody(HttpBaseRequest& request, const char* data, std::size_t size) {
    if (!request.editInternalResponseDevice().isEndSending()) {
        impl::RequestAccess::feed(request).feed(data, size);
    }
    wait_.progress();
}

void RequestDispatch::endBody(RequestContext& context, std::int64_t nowMs) {
    HttpReceiveDevice& feed = impl::RequestAccess::feed(*context.request);
    const qlMutexLocker locker(feed.getLock());
    impl::RequestAccess::setReadDuration(*context.request, context.receiveTimer.getElapsedMs(nowMs));
    feed.endFeed();
}

MHD_Result RequestDispatch::answerWhenReady(RequestContext& context, std::int64_t nowMs) {
    HttpBaseRequest& request = *context.request;
    HttpResponseInterface& description = request.getResponse();
    // Unlocked, so that polling is cheap; decided again under the lock.
    if (request.editInternalResponseDevice().getResponseState() == ResponseState::NotReady) {
        impl::nameMissingRelease(request, nowMs);
        wait_.wait(request, nowMs);
        return MHD_YES;
    }
    return answer(request, description, nowMs);
}

MHD_Result RequestDispatch::answer(HttpBaseRequest& request, HttpResponseInterface& description, std::int64_t nowMs) {
    std::vector<char> body;
    const AnswerStep step = takeAnswerStep(request, body);
    if (step == AnswerStep::Wait) {
        wait_.wait(request, nowMs);
        return MHD_YES;
    }
    wait_.progress();
    switch (step) {
    case AnswerStep::Wait:
    case AnswerStep::None:
        break;
    case AnswerStep::Fail:
        return answerInternalError();
    case AnswerStep::StreamOpenBody:
        return answerStream(request, description, false);
    case AnswerStep::StreamEndedBody:
        return answerStream(request, description, true);
    case AnswerStep::Buffer:
        return answerBuffer(request, description, std::move(body));
    }
    return MHD_YES;
}

MHD_Result RequestDispatch::answerStream(HttpBaseRequest& request, HttpResponseInterface& description, bool bodyEnded) {
    std::uint64_t length = MHD_SIZE_UNKNOWN;
    const std::int64_t declaredLength = description.getContentLength();
    if (declaredLength >= 0) {
        length = static_cast<std::uint64_t>(declaredLength);
    } else if (bodyEnded) {
        length = request.editInternalResponseDevice().getDataSize();
    }
    return queue(request, description,
                 EngineResponse(MHD_create_response_from_callback(length, StreamBlockBytes, impl::readContent, &request,
                                                                  nullptr)));
}

MHD_Result RequestDispatch::answerBuffer(HttpBaseRequest& request, HttpResponseInterface& description,
                                         std::vector<char>&& body) {
    EngineResponse response(MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_MUST_COPY));
    impl::recycleChunk(std::move(body));
    return queue(request, description, std::move(response));
}

MHD_Result RequestDispatch::queue(HttpBaseRequest& request, const HttpResponseInterface& description,
                                  EngineResponse&& response) {
    impl::RequestAccess::setWriteStart(request, qlSystemUtils::GetTimeBaseMs());
    impl::RequestAccess::addHeaderSentBytes(request, response.addHeadersAndCookies(description));
    return response.queue(connection_, description.getStatusCode());
}

MHD_Result RequestDispatch::answerInternalError() noexcept {
    return makeFixedResponse(server_.getHttpImplementation()->getDefaultInternalError())
        .queue(connection_, MHD_HTTP_INTERNAL_SERVER_ERROR);
}

} // namespace ql::http
