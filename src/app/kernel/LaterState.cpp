#include "app/kernel/LaterState.h"

#include "app/kernel/AppExchange.h"
#include "app/kernel/Chain.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/HandlerMark.h"
#include "app/kernel/Service.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Later.h"
#include "vireo/support/qlLog.h"

#include <exception>
#include <utility>

namespace vireo {

namespace impl {

namespace {

constexpr int InternalServerError = 500;

} // namespace

LaterState::LaterState(std::shared_ptr<AppExchange> exchange) : exchange_(std::move(exchange)) {}

LaterState::~LaterState() {
    if (!exchange_->state().claim(AppExchange::Stage::Deferred)) {
        return;
    }
    const Work work = exchange_->takeWork();
    const std::unique_ptr<Answer> dropped = exchange_->takeDeferred();
    try {
        const HeadView& head = exchange_->request().head;
        qlLogObject(qlLogType::Failure, "app") << head.method() << " " << head.rawPath() << " (route "
                                               << work.endpoint->label() << ") : the last Later went unanswered";
        Answer answer;
        answer.setError(InternalServerError, "internal error");
        exchange_->send(std::move(answer));
    } catch (...) {
        exchange_->giveUp("the answer of a Later");
    }
}

bool LaterState::answer(const std::function<void(Response&)>& fill) {
    if (!exchange_->state().claim(AppExchange::Stage::Deferred)) {
        return false;
    }
    const Work work = exchange_->takeWork();
    const std::unique_ptr<Answer> deferred = exchange_->takeDeferred();
    try {
        answer(fill, work, std::move(*deferred));
    } catch (...) {
        // There is no memory even to say so, and nobody else may answer any more.
        exchange_->giveUp("the answer of a Later");
    }
    return true;
}

void LaterState::answer(const std::function<void(Response&)>& fill, const Work& work, Answer&& deferred) {
    const HandlerMark mark(*work.service->app());
    ResponseState state{std::move(deferred), exchange_->request(), exchange_.get()};
    state.holder = ResponseState::Holder::Later;
    std::exception_ptr failure;
    try {
        Response response = ResponseAccess::Of(state);
        fill(response);
    } catch (...) {
        failure = std::current_exception();
    }
    finishAnswer(*work.endpoint, request(), state, failure);
    exchange_->deliver(std::move(state.answer), *work.service);
}

bool LaterState::isGone() const {
    return exchange_->isGone();
}

Request& LaterState::request() const {
    return exchange_->request().request;
}

} // namespace impl

Later::Later(std::shared_ptr<impl::LaterState> state) : state_(std::move(state)) {}
Later::Later(const Later& other) = default;
Later::Later(Later&& other) noexcept = default;
Later& Later::operator=(const Later& other) = default;
Later& Later::operator=(Later&& other) noexcept = default;
Later::~Later() = default;

bool Later::answer(const Hook& fill) const {
    return state_->answer(fill);
}

bool Later::text(std::string text) const {
    return state_->answer([&text](Response& response) { response.text(std::move(text)); });
}

bool Later::fail(int status, std::string text) const {
    const HttpError error(status, std::move(text));
    return state_->answer([&error](Response&) { throw HttpError(error); });
}

bool Later::isGone() const {
    return state_->isGone();
}

Request& Later::request() const {
    return state_->request();
}

} // namespace vireo
