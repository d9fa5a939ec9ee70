#include "server/RequestCompletion.h"

#include "engine/FormDecoding.h"
#include "frame/ExceptionLog.h"
#include "request/Misuse.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/Exchange.h"
#include "server/RequestContext.h"
#include "streams/FeedAccess.h"
#include "streams/WholeBody.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/RequestOwner.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace ql::impl {

void reportLoss(HttpResponseDevice& device, const char* reason) noexcept {
    try {
        device.setConnectionLost(reason);
    } catch (...) {
        logCurrentException("completion of a request", "httpserver");
    }
}

namespace {

/// Whether the application gave its response up, which makes the engine break off as well.
/// @param message filled in that case.
bool hasFailed(HttpResponseDevice& device, std::string& message) noexcept {
    const qlMutexLocker locker(device.getLock());
    if (!device.hasDeviceError()) {
        return false;
    }
    try {
        message = device.getDeviceErrorMsg();
    } catch (...) {
        logCurrentException("the record of an exchange", "httpserver");
    }
    return true;
}

RecordNotes takeNotes(HttpBaseRequest& request) noexcept {
    const qlMutexLocker locker(request.editInternalResponseDevice().getLock());
    return std::move(RequestAccess::state(request).recordNotes);
}

/// What observers are to know of a request that the application may delete soon.
void noteCompletion(RequestContext& context, const char* lossReason) noexcept {
    const Exchange& exchange = *context.exchange;
    context.recording->noteBodies(exchange.receivedBytes(), exchange.sentBytes());
    context.recording->note(takeNotes(*context.request));
    std::string message;
    if (exchange.isCut()) {
        context.recording->noteCut(exchange.cutReason());
    } else if (lossReason != nullptr && hasFailed(context.request->editInternalResponseDevice(), message)) {
        context.recording->noteEnding(http::ExchangeRecord::Ending::Failed, message);
    }
}

} // namespace

const char* completeExchange(RequestContext& context, const char* engineReason) noexcept {
    if (!context.exchange) {
        return engineReason;
    }
    context.client->endExchange();
    // From here on nobody cuts it any more.
    const char* const lossReason = context.exchange->isCut() ? cutWord(context.exchange->cutReason()) : engineReason;
    if (context.recording) {
        noteCompletion(context, lossReason);
    }
    if (context.exchange->hasWholeBody()) {
        return lossReason;
    }
    if (lossReason != nullptr) {
        // First the way out, so that a worker whose reading fails does not write in vain.
        HttpResponseDevice& device = context.request->editInternalResponseDevice();
        const qlMutexLocker locker(device.getLock());
        reportLoss(device, lossReason);
    }
    if (HttpReceiveDevice* const feed = RequestAccess::feedOfBody(*context.request)) {
        FeedAccess::fail(*feed, lossReason == nullptr ? AnsweredEarly : lossReason);
    }
    return lossReason;
}

void completeRequest(http::HttpServer& server, HttpBaseRequest& request, const char* lossReason) noexcept {
    nameMissingRelease(request);
    if (FormDecoding* const form = RequestAccess::state(request).form.get()) {
        form->end();
    }
    // Goes under no lock.
    std::shared_ptr<const void> ownerOfBuffer;
    HttpResponseDevice& device = request.editInternalResponseDevice();
    const qlMutexLocker locker(device.getLock());
    if (std::optional<WholeBody>& whole = RequestAccess::state(request).wholeBody; whole) {
        if (auto* const buffer = std::get_if<BufferBody>(&whole->source)) {
            ownerOfBuffer = std::move(buffer->owner);
        }
        // A file that never came to be sent is closed: the request may live on for long.
        whole.reset();
    }
    // Once the request is scheduler-done the application may delete it at any time. Its destructor stops at the
    // device's lock, held here: the device is safe to use until the end of this scope, the request is not.
    request.setSchedulerDone();
    try {
        server.getHttpImplementation()->notifyScheduler();
    } catch (...) {
        logCurrentException("notifyScheduler", "httpserver");
    }
    if (lossReason != nullptr) {
        reportLoss(device, lossReason);
    }
}

void tellOwner(const RequestContext& context, const char* lossReason) noexcept {
    if (context.serving == nullptr || !context.serving->options.getRequestOwner()) {
        return;
    }
    try {
        context.serving->options.getRequestOwner()->onRequestDone(*context.request,
                                                                  lossReason == nullptr ? "" : lossReason);
    } catch (...) {
        logCurrentException("onRequestDone", "httpserver");
    }
}

void tellOfExchange(RequestContext& context, EngineConnection connection,
                    http::ExchangeRecord::Ending ending) noexcept {
    if (context.recording) {
        if (context.request == nullptr && context.client->takeHeadLate()) {
            context.recording->noteCut(CutReason::HeadTimeout);
        }
        context.recording->finish(context.serving->observers, ending, connection.answerStatus());
        context.recording.reset();
    }
}

} // namespace ql::impl
