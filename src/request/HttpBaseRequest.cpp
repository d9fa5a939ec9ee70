#include "vireo/HttpBaseRequest.h"

#include "request/RequestState.h"
#include "streams/FeedAccess.h"
#include "vireo/support/qlSystemUtils.h"

#include <utility>

namespace ql {

HttpBaseRequest::HttpBaseRequest()
    : feedDevice_(std::make_unique<HttpReceiveDevice>(*this)),
      responseDevice_(std::make_unique<HttpResponseDevice>(*this)),
      state_(std::make_unique<impl::RequestState>()) {}

HttpBaseRequest::~HttpBaseRequest() {
    feedDevice_.reset();
    responseDevice_.reset();
}

// Not inline, so that a later version can file the head, and make the devices, when they are first asked for.

HttpBaseRequest::RequestType HttpBaseRequest::getRequestType() const {
    return requestType_;
}

const std::string& HttpBaseRequest::getMethodToken() const {
    return state_->methodToken;
}

const std::string& HttpBaseRequest::getOriginalRequestUrl() const {
    return originalUrl_;
}

const http::HttpUrl& HttpBaseRequest::getParsedUrl() const {
    return parsedUrl_;
}

const http::HttpHeaders& HttpBaseRequest::getHeaders() const {
    return headers_;
}

const HttpBaseRequest::NamedValues& HttpBaseRequest::getCookies() const {
    return cookies_;
}

const HttpBaseRequest::NamedValues& HttpBaseRequest::getQueryParameters() const {
    return queryParameters_;
}

std::span<const HeaderLine> HttpBaseRequest::getHeaderLines() const {
    return state_->lines;
}

std::optional<std::uint64_t> HttpBaseRequest::getAnnouncedBodyBytes() const {
    return state_->announcedBodyBytes;
}

bool HttpBaseRequest::hasParseError() const {
    return parseErrorFlag_;
}

const std::string& HttpBaseRequest::getParseError() const {
    return parseError_;
}

HttpBaseRequest::ParseErrorKind HttpBaseRequest::getParseErrorKind() const {
    return state_->parseErrorKind;
}

const std::string& HttpBaseRequest::getParseErrorField() const {
    return state_->parseErrorField;
}

const http::TlsPeer* HttpBaseRequest::getTlsPeer() const {
    return state_->tlsPeer.get();
}

const IpAddress& HttpBaseRequest::getClientAddress() const {
    return clientAddress_;
}

void HttpBaseRequest::setClientAddress(const IpAddress& address) {
    clientAddress_ = address;
}

void HttpBaseRequest::acceptBody() {
    impl::FeedAccess::accept(*feedDevice_);
}

HttpResponseDevice& HttpBaseRequest::editInternalResponseDevice() {
    return *responseDevice_;
}

HttpReceiveDevice& HttpBaseRequest::editFeedDevice() {
    return *feedDevice_;
}

std::uint64_t HttpBaseRequest::getBodyReceivedByteCount() const {
    return feedDevice_ ? static_cast<std::uint64_t>(feedDevice_->getReceivedBytes()) : 0;
}

std::uint64_t HttpBaseRequest::getBodySentByteCount() const {
    return responseDevice_ ? static_cast<std::uint64_t>(responseDevice_->getSentBytes()) : 0;
}

std::uint64_t HttpBaseRequest::getHeaderAndResponseWriteDurationMs() const {
    const std::int64_t startMs = responseWriteStartMs_.load(std::memory_order_relaxed);
    return startMs < 0 ? 0 : static_cast<std::uint64_t>(qlSystemUtils::GetTimeBaseMs() - startMs);
}

void HttpBaseRequest::resetWriteIdleCounter() {
    writeIdleCounter_.store(0, std::memory_order_relaxed);
}

void HttpBaseRequest::setOpaquePtr(void* pointer) {
    opaquePtr_.store(pointer, std::memory_order_release);
}

bool HttpBaseRequest::hasClientLeft() const {
    return state_->hasClientLeft;
}

void HttpBaseRequest::setRecordClient(const IpAddress& client) {
    const qlMutexLocker locker(responseDevice_->getLock());
    state_->recordNotes.forwardedClient = client;
}

void HttpBaseRequest::setRecordId(std::string id) {
    const qlMutexLocker locker(responseDevice_->getLock());
    state_->recordNotes.requestId = std::move(id);
}

void HttpBaseRequest::setSchedulerDone() {
    // The flag last: whoever sees it knows that the handle is gone too.
    setOpaquePtr(nullptr);
    schedulerDone_.store(true, std::memory_order_release);
}

void HttpBaseRequest::workerThreadStartHandling(const std::string& threadId) {
    currentWorkerThreadId_ = threadId;
    state_->workerGoneSinceMs.store(-1, std::memory_order_relaxed);
}

void HttpBaseRequest::workerThreadStopHandling(const std::string& /*threadId*/) {
    if (!currentWorkerThreadId_.empty()) {
        state_->workerGoneSinceMs.store(qlSystemUtils::GetTimeBaseMs(), std::memory_order_relaxed);
    }
    currentWorkerThreadId_.clear();
    removeIdleCallback();
}

} // namespace ql
