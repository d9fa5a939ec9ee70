#include "app/kernel/AppExchange.h"

#include "app/body/RequestBody.h"
#include "app/encoding/AnswerEncoding.h"
#include "app/kernel/AutomaticAnswers.h"
#include "app/kernel/Chain.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/HandlerMark.h"
#include "app/kernel/LaterState.h"
#include "app/kernel/Reason.h"
#include "app/kernel/Service.h"
#include "app/kernel/Throw.h"
#include "app/routing/RouteTable.h"
#include "frame/ExceptionLog.h"
#include "frame/NeverDestroyed.h"
#include "vireo/FormDecoder.h"
#include "vireo/app/ClientGone.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"
#include "vireo/support/qlThread.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace vireo::impl {

namespace {

constexpr const char* LogTag = "app";
/// Beyond it a write waits for the client.
constexpr std::uint64_t MaxQueuedBytes = 262144;
/// A quick handler that takes longer holds up others.
constexpr std::int64_t SlowQuickMs = 100;

const char* textOf(HeadView::Fault fault) {
    switch (fault) {
    case HeadView::Fault::None:
        break;
    case HeadView::Fault::BadEscape:
        return "the path has an escape that is none";
    case HeadView::Fault::Nul:
        return "the path has a NUL";
    case HeadView::Fault::NotUtf8:
        return "the path is no UTF-8";
    case HeadView::Fault::DotSegment:
        return "the path has a segment of dots";
    }
    return "";
}

/// The calling thread is the one that may write, as the core wants it.
class Writing {
public:
    explicit Writing(ql::HttpBaseRequest& request) : request_(request) {
        request_.workerThreadStartHandling(qlThread::CurrentThreadId());
    }
    ~Writing() { request_.workerThreadStopHandling(qlThread::CurrentThreadId()); }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

private:
    ql::HttpBaseRequest& request_;
};

} // namespace

AppExchange& AppExchange::Make(std::shared_ptr<Service> service, ql::http::HttpServerImpl& server) {
    const auto exchange = std::make_shared<AppExchange>(std::move(service), server);
    exchange->self_ = exchange;
    return *exchange;
}

AppExchange::AppExchange(std::shared_ptr<Service> service, ql::http::HttpServerImpl& server)
    : server_(server), work_{std::move(service), nullptr} {}

AppExchange::~AppExchange() = default;

// ---- Daemon thread ----

void AppExchange::handle() {
    const ServicePlan& plan = work_.service->plan();
    request_ =
        std::make_unique<RequestData>(*this, qlSystemUtils::GetTimeBaseMs(), getMethodToken(), getOriginalRequestUrl(),
                                      getHeaderLines(), getClientAddress(), getTlsPeer(), plan.proxies);
    if (hasParseError()) {
        refuse(500, reasonPhrase(500));
        return;
    }
    HeadView& head = request_->head;
    if (work_.service->isRecording()) {
        setRecordClient(head.clientAddress());
        setRecordId(head.id());
    }
    if (const HeadView::Fault fault = head.split(); fault != HeadView::Fault::None) {
        refuse(400, textOf(fault));
        return;
    }
    const Match match = plan.table.match(head.method(), head.segments());
    const std::optional<std::uint64_t> announced = getAnnouncedBodyBytes();
    hasWholeBody_ = announced == 0U;
    if (match.outcome != Match::Outcome::Found) {
        work_.endpoint = automaticEndpoint(head, match, plan.table);
        run();
        return;
    }
    head.setMatch(match);
    work_.endpoint = match.scope == nullptr ? match.endpoint : endpointBelowGroup(*match.endpoint, match.scope);
    maxBody_ = work_.endpoint->maxBody;
    if (work_.endpoint->isQuick) {
        maxBody_ = (std::min)(maxBody_, work_.service->maxQuickBody());
    }
    if (hasWholeBody_) {
        run();
    } else if (announced.value_or(1) > maxBody_) {
        refuseBody();
    } else {
        form_ = ql::http::FormDecoder::Create(*this);
        acceptBody();
    }
}

void AppExchange::handleBody(bool isWhole) {
    if (state_.stage() != Stage::Waiting) {
        // Nobody waited for it: what answers where no route does has read it of its own accord.
        return;
    }
    hasWholeBody_ = isWhole;
    if (!isWhole && work_.endpoint->isQuick) {
        refuseBody();
    } else {
        run();
    }
}

void AppExchange::end() noexcept {
    const Stage ended = state_.end();
    // They go without a lock, as the last thing but this itself.
    Work work;
    std::unique_ptr<Answer> answer;
    if (ended == Stage::Waiting || ended == Stage::Deferred) {
        work = takeWork();
        answer = takeDeferred();
    }
    std::shared_ptr<EndListener> listener;
    {
        const qlMutexLocker locker(mutex_);
        hasEnded_ = true;
        listener = endListener_.lock();
    }
    if (listener != nullptr) {
        listener->onEnd();
    }
    const std::shared_ptr<AppExchange> self = std::move(self_);
}

void AppExchange::refuseBody() {
    work_.endpoint = endpointOfTooLargeBody(*work_.endpoint, maxBody_);
    run();
}

void AppExchange::refuse(int status, std::string text) {
    if (!state_.begin()) {
        return;
    }
    const Work work = takeWork();
    Answer answer;
    answer.setError(status, std::move(text));
    answerInstead(std::move(answer));
}

void AppExchange::run() {
    if (!state_.begin()) {
        return;
    }
    const Work work = takeWork();
    const std::shared_ptr<Service>& service = work.service;
    const std::shared_ptr<const Endpoint>& endpoint = work.endpoint;
    if (endpoint->isQuick) {
        const std::int64_t beginMs = qlSystemUtils::GetTimeBaseMs();
        perform(work);
        if (qlSystemUtils::GetTimeBaseMs() - beginMs > SlowQuickMs && !endpoint->wasSlow.exchange(true)) {
            qlLogObject(qlLogType::Failure, LogTag)
                << "the quick route " << endpoint->label() << " took more than " << SlowQuickMs
                << " ms, in which no other client of its thread was served";
        }
        return;
    }
    bodyWaits_ = &service->pool();
    WorkerPool::Task task = [self = shared_from_this(), work] { self->performOnWorker(work); };
    if (!service->pool().push(std::move(task), endpoint->label())) {
        service->noteRefusal();
        Answer answer;
        answer.setError(503, "too many requests wait for a worker");
        answer.headers.add("Retry-After", "1");
        answerInstead(std::move(answer));
    }
}

// ---- The chain's thread ----

void AppExchange::perform(const Work& work) {
    if (state_.isOver()) {
        return;
    }
    const HandlerMark mark(*work.service->app());
    ResponseState state{Answer(), *request_, this, &work};
    Request& request = request_->request;
    std::exception_ptr failure;
    try {
        Response response = ResponseAccess::Of(state);
        runChain(work, request, response);
    } catch (...) {
        failure = std::current_exception();
    }
    // Where nobody else holds it nobody can any more.
    if (failure != nullptr && state.later.use_count() == 1 &&
        state.later->answer([&failure](Response&) { std::rethrow_exception(failure); })) {
        return;
    }
    if (state_.stage() != Stage::Open) {
        if (failure != nullptr) {
            logUnsent(*work.endpoint, state, failure);
        }
        return;
    }
    finishAnswer(*work.endpoint, request, state, failure);
    if (state_.claim(Stage::Open)) {
        deliver(std::move(state.answer), *work.service);
    }
}

void AppExchange::performOnWorker(const Work& work) noexcept {
    try {
        perform(work);
    } catch (...) {
        // There is no memory even to say so. Unlike on a daemon thread nobody behind answers in its place.
        ql::impl::logCurrentException("the answer to a request", LogTag);
        if (state_.claim(Stage::Open)) {
            breakOff("InternalError");
        }
    }
}

std::shared_ptr<LaterState> AppExchange::defer(Answer& answer, const Work& work) {
    auto later = std::make_shared<LaterState>(shared_from_this());
    auto deferred = std::make_unique<Answer>(std::move(answer));
    // Nobody looks at them before the stage says so.
    work_ = work;
    deferred_ = std::move(deferred);
    request_->isDeferred = true;
    if (body_) {
        body_->freeze();
    }
    if (!state_.defer()) {
        work_ = {};
        deferred_ = nullptr;
        return nullptr;
    }
    return later;
}

// ---- Whoever has claimed it ----

bool AppExchange::answerInstead(Answer&& answer) {
    Work work;
    std::unique_ptr<Answer> dropped;
    if (!state_.claim(Stage::Open)) {
        if (!state_.claim(Stage::Deferred)) {
            return false;
        }
        work = takeWork();
        dropped = takeDeferred();
    }
    send(std::move(answer));
    return true;
}

void AppExchange::describe(Answer& answer, std::int64_t length) {
    description_.status = answer.status;
    description_.headers = std::move(answer.headers);
    description_.length = length;
}

void AppExchange::deliver(Answer&& answer, Service& service) noexcept {
    const auto begin = std::move(answer.begin);
    if (begin == nullptr) {
        send(std::move(answer));
        return;
    }
    try {
        beginStream(std::move(answer), std::nullopt);
        if (!isHead()) {
            begin(shared_from_this(), service);
        }
    } catch (...) {
        giveUp("the begin of an event stream");
    }
}

void AppExchange::send(Answer&& answer) noexcept {
    try {
        sendWhole(answer);
    } catch (...) {
        giveUp("the sending of an answer");
    }
}

void AppExchange::sendWhole(Answer& answer) {
    ql::HttpResponseDevice& device = editInternalResponseDevice();
    encodeWhole(answer);
    if (answer.status == 304) {
        // The client has them already. Hooks may have wanted to know what it is about.
        answer.headers.remove("Content-Type");
        answer.headers.remove("Content-Encoding");
    }
    const bool hasBody = !isHead() && !isBodiless(answer.status);
    if (answer.file && hasBody) {
        const std::uint64_t size = answer.file->size;
        describe(answer, static_cast<std::int64_t>(size));
        device.releaseFile(answer.file->file.take(), answer.file->offset, size);
        return;
    }
    if (answer.file && !isWithoutContent(answer.status)) {
        // Of the body that there would be.
        answer.headers.set("Content-Length", std::to_string(answer.file->size));
    } else if (isBodiless(answer.status)) {
        answer.body.clear();
    }
    describe(answer, static_cast<std::int64_t>(answer.body.size()));
    // Not kept by the exchange, which may live on for long.
    const auto body = std::make_shared<const std::string>(std::move(answer.body));
    device.releaseBuffer(body->data(), body->size(), body);
}

void AppExchange::beginStream(Answer&& answer, std::optional<std::uint64_t> length) {
    describe(answer, length ? static_cast<std::int64_t>(*length) : -1);
    // A body that ended at once would be one of a known length, 0: for HEAD it stays open, as nobody takes it.
    if (length && isHead()) {
        description_.headers.set("Content-Length", std::to_string(*length));
    }
    editInternalResponseDevice().releaseResponse();
}

bool AppExchange::write(std::string_view bytes, ClientWaits* waits) {
    ql::HttpResponseDevice& device = editInternalResponseDevice();
    const Writing writing(*this);
    const WaitForClient wait(device.getDataSize() > MaxQueuedBytes ? waits : nullptr);
    return !state_.isOver() && device.writeBytes(bytes.data(), bytes.size()) == bytes.size() &&
           !device.hasDeviceError();
}

void AppExchange::flush(ClientWaits* waits) {
    ql::HttpResponseDevice& device = editInternalResponseDevice();
    const Writing writing(*this);
    const WaitForClient wait(device.getDataSize() > MaxQueuedBytes ? waits : nullptr);
    device.flush();
}

void AppExchange::endStream() {
    editInternalResponseDevice().endSending();
}

void AppExchange::breakOff(const char* why) noexcept {
    ql::HttpResponseDevice& device = editInternalResponseDevice();
    try {
        const qlMutexLocker locker(device.getLock());
        device.setConnectionLost(why);
    } catch (...) {
        ql::impl::logCurrentException("breaking off an answer", LogTag);
    }
    device.endSending();
    if (device.getResponseState() == ql::HttpResponseDevice::ResponseState::NotReady) {
        // The client gets a 500.
        device.releaseResponse();
    }
}

void AppExchange::giveUp(const char* what) noexcept {
    ql::impl::logCurrentException(what, LogTag);
    breakOff("InternalError");
}

std::uint64_t AppExchange::queuedBytes() {
    return editInternalResponseDevice().getDataSize();
}

bool AppExchange::listenEnd(std::weak_ptr<EndListener> listener) {
    const qlMutexLocker locker(mutex_);
    endListener_ = std::move(listener);
    return !hasEnded_;
}

bool AppExchange::isHead() const {
    return request_->head.method() == "HEAD";
}

RequestBody& AppExchange::body() {
    if (request_->isDeferred) {
        throwLogicError("the body of a request cannot be asked for after Response::later()");
    }
    if (body_ == nullptr) {
        body_ = std::make_unique<RequestBody>(editFeedDevice(), std::move(form_),
                                              RequestBody::Limits{maxBody_, getAnnouncedBodyBytes(), hasWholeBody_},
                                              bodyWaits_);
    }
    return *body_;
}

bool AppExchange::isGone() const {
    return state_.isOver() || hasClientLeft();
}

const AppExchange::Description::Cookies& AppExchange::Description::getCookies() const {
    static ql::impl::NeverDestroyed<Cookies> none;
    return *none;
}

std::string AppExchange::Description::getReasonPhrase() const {
    return reasonPhrase(status);
}

} // namespace vireo::impl
