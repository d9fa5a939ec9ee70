#include "vireo/HttpBaseRequest.h"

#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "request/StrictIntake.h"
#include "streams/FeedAccess.h"
#include "vireo/support/qlSystemUtils.h"

#include <utility>

namespace ql {

namespace {

/// For those who look at what is parsed. That it is made when somebody looks is nothing that they can see.
template <typename Request>
const Request& parsed(const Request& request) {
    impl::parseKeptHead(const_cast<Request&>(request));
    return request;
}

} // namespace

HttpBaseRequest::HttpBaseRequest()
    : responseDevice_(std::make_unique<HttpResponseDevice>(*this)), state_(std::make_unique<impl::RequestState>()) {}

HttpBaseRequest::~HttpBaseRequest() {
    state_->feed = nullptr;
    feedDevice_.reset();
    responseDevice_.reset();
    // While there is the state, at which what it holds may look.
    removeIdleCallback();
}

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
    return parsed(*this).parsedUrl_;
}

const http::HttpHeaders& HttpBaseRequest::getHeaders() const {
    return parsed(*this).headers_;
}

const HttpBaseRequest::Values* HttpBaseRequest::getHeader(const char* name) const {
    return getHeaders().find(name);
}

const HttpBaseRequest::Values* HttpBaseRequest::getCookie(const char* name) const {
    const NamedValues& cookies = getCookies();
    const auto found = cookies.find(name);
    return found == cookies.end() ? nullptr : &found->second;
}

const HttpBaseRequest::NamedValues& HttpBaseRequest::getCookies() const {
    return parsed(*this).cookies_;
}

const HttpBaseRequest::NamedValues& HttpBaseRequest::getQueryParameters() const {
    return parsed(*this).queryParameters_;
}

std::span<const HeaderLine> HttpBaseRequest::getHeaderLines() const {
    return state_->lines;
}

std::optional<std::uint64_t> HttpBaseRequest::getAnnouncedBodyBytes() const {
    return state_->announcedBodyBytes;
}

bool HttpBaseRequest::hasParseError() const {
    return parsed(*this).parseErrorFlag_;
}

const std::string& HttpBaseRequest::getParseError() const {
    return parsed(*this).parseError_;
}

HttpBaseRequest::ParseErrorKind HttpBaseRequest::getParseErrorKind() const {
    return parsed(*this).state_->parseErrorKind;
}

const std::string& HttpBaseRequest::getParseErrorField() const {
    return parsed(*this).state_->parseErrorField;
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
    if (HttpReceiveDevice* const feed = impl::RequestAccess::feedOfBody(*this)) {
        impl::FeedAccess::accept(*feed);
    }
}

HttpResponseDevice& HttpBaseRequest::editInternalResponseDevice() {
    return *responseDevice_;
}

HttpReceiveDevice& HttpBaseRequest::editFeedDevice() {
    if (HttpReceiveDevice* const made = state_->feed.load(std::memory_order_acquire)) {
        return *made;
    }
    // Outside the lock, under which no lock of a device is taken. Of two threads one makes it in vain.
    auto device = std::make_unique<HttpReceiveDevice>(*this);
    impl::FeedAccess::begin(*device, state_->uploadWindowBytes, !state_->hasNoBody);
    const qlMutexLocker locker(state_->makingMutex);
    if (!feedDevice_) {
        feedDevice_ = std::move(device);
        state_->feed.store(feedDevice_.get(), std::memory_order_release);
    }
    return *feedDevice_;
}

std::uint64_t HttpBaseRequest::getBodyReceivedByteCount() const {
    const HttpReceiveDevice* const feed = state_->feed.load(std::memory_order_acquire);
    return feed == nullptr ? 0 : static_cast<std::uint64_t>(feed->getReceivedBytes());
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
