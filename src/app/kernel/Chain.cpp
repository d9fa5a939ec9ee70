#include "app/kernel/Chain.h"

#include "app/kernel/Answer.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/HttpErrorData.h"
#include "app/kernel/Throw.h"
#include "app/request/RequestData.h"
#include "frame/ExceptionLog.h"
#include "frame/Utf8.h"
#include "vireo/app/ClientGone.h"
#include "vireo/app/HttpError.h"
#include "vireo/support/qlLog.h"

#include <cstddef>
#include <utility>

namespace vireo {

namespace impl {

namespace {

constexpr const char* LogTag = "app";
constexpr int InternalServerError = 500;
constexpr const char* InternalErrorText = "internal error";

/// Runs what answers.
void runLast(Response& response, const std::function<void()>& last) {
    ResponseState& state = ResponseAccess::state(response);
    state.reached = ResponseState::Reached::Handler;
    last();
    state.reached = ResponseState::Reached::End;
}

/// Who should have answered and has not.
const char* textOfMissing(const ResponseState& state) {
    if (state.holder == ResponseState::Holder::Later) {
        return "Later::answer() was given a function that set no answer";
    }
    if (state.reached == ResponseState::Reached::Middlewares) {
        return "a middleware neither set an answer nor called next()";
    }
    if (state.holder == ResponseState::Holder::Opening) {
        return "the WebSocket was neither accepted nor refused";
    }
    return state.answer.status == 200 ? "the handler set no answer"
                                      : "the handler set no answer: a status alone is none, Response::empty() is";
}

/// What its status allows none is sent without.
void dropForbiddenBody(const Endpoint& endpoint, ResponseState& state) {
    if (!isWithoutContent(state.answer.status) || state.answer.body.empty()) {
        return;
    }
    qlLogObject(qlLogType::Failure, LogTag)
        << lineBegin(endpoint, state) << " : an answer with status " << state.answer.status
        << " has no body, and the one that was set is not sent";
    state.answer.dropBody();
    state.answer.isSet = true;
}

} // namespace

/// One pass through a chain.
class ChainRun {
public:
    using Links = std::vector<std::shared_ptr<const Middleware>>;

    ChainRun(const Links& links, Request& request, Response& response, const std::function<void()>& last)
        : links_(links), request_(request), response_(response), last_(last) {}
    ChainRun(const ChainRun&) = delete;
    ChainRun& operator=(const ChainRun&) = delete;

    /// Runs the next link, unless there is an answer already.
    void goOn() {
        if (response_.isSet()) {
            return;
        }
        if (reached_ == links_.size()) {
            runLast(response_, last_);
            return;
        }
        const Middleware& link = *links_[reached_++];
        Next next(*this);
        link(request_, response_, next);
    }

private:
    const Links& links_;
    Request& request_;
    Response& response_;
    const std::function<void()>& last_;
    std::size_t reached_ = 0;
};

struct FailureAccess {
    static Failure make(int status, std::string text, std::exception_ptr exception) {
        return {status, std::move(text), std::move(exception)};
    }
};

void runChain(const Endpoint& endpoint, Request& request, Response& response, const std::function<void()>& last) {
    if (endpoint.scope == nullptr || endpoint.scope->chain.empty()) {
        runLast(response, last);
        return;
    }
    ChainRun(endpoint.scope->chain, request, response, last).goOn();
}

void runChain(const Work& work, Request& request, Response& response) {
    const Endpoint& endpoint = *work.endpoint;
    const auto last = [&] { (*endpoint.handler)(request, response); };
    // By reference: the function object of a larger lambda would be allocated.
    runChain(endpoint, request, response, std::cref(last));
}

void setFailure(const Endpoint& endpoint, Request& request, ResponseState& state, const std::exception_ptr& failure) {
    int status = InternalServerError;
    std::string text = InternalErrorText;
    std::vector<std::pair<std::string, std::string>> headers;
    try {
        std::rethrow_exception(failure);
    } catch (const HttpError& error) {
        status = error.status();
        text = error.what();
        error.forEachHeader(
            [&headers](const std::string& name, const std::string& value) { headers.emplace_back(name, value); });
    } catch (const ClientGone&) {
        // Nobody sees the answer, and nothing is wrong.
    } catch (...) {
        ql::impl::logCurrentException(lineBegin(endpoint, state).c_str(), LogTag);
    }
    state.answer.clear();
    if (endpoint.scope != nullptr && endpoint.scope->onError != nullptr) {
        try {
            Response response = ResponseAccess::Of(state);
            response.status(status);
            for (const auto& [name, value] : headers) {
                response.addHeader(name, value);
            }
            (*endpoint.scope->onError)(FailureAccess::make(status, text, failure), request, response);
        } catch (...) {
            ql::impl::logCurrentException((lineBegin(endpoint, state) + " : its error handler").c_str(), LogTag);
            state.answer.setError(InternalServerError, InternalErrorText);
        }
    }
    if (!state.answer.isSet) {
        state.answer.setError(status, std::move(text));
        for (const auto& [name, value] : headers) {
            state.answer.headers.add(name, value);
        }
    }
}

void finishAnswer(const Endpoint& endpoint, Request& request, ResponseState& state, const std::exception_ptr& failure) {
    if (failure != nullptr) {
        setFailure(endpoint, request, state, failure);
    } else if (!state.answer.isSet) {
        qlLogObject(qlLogType::Failure, LogTag) << lineBegin(endpoint, state) << " : " << textOfMissing(state);
        const HttpError error(InternalServerError, InternalErrorText);
        setFailure(endpoint, request, state, std::make_exception_ptr(error));
    }
    try {
        runHooks(state);
    } catch (...) {
        ql::impl::logCurrentException((lineBegin(endpoint, state) + " : a hook of beforeSend()").c_str(), LogTag);
        state.answer.setError(InternalServerError, InternalErrorText);
    }
    dropForbiddenBody(endpoint, state);
}

void logUnsent(const Endpoint& endpoint, const ResponseState& state, const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const ClientGone&) {
        // As it should.
    } catch (const HttpError& error) {
        if (state.isSent || state.later != nullptr) {
            qlLogObject(qlLogType::Failure, LogTag)
                << lineBegin(endpoint, state)
                << " threw an error that nobody is told of : " << ql::impl::withoutControls(error.what());
        }
    } catch (...) {
        const bool isOfMiddleware = state.reached == ResponseState::Reached::End;
        if (!isOfMiddleware) {
            ql::impl::logCurrentException(lineBegin(endpoint, state).c_str(), LogTag);
        } else if (!state.isChangedLate || !endpoint.wasChangedLate.exchange(true)) {
            // What it does to each answer of the route is said once.
            ql::impl::logCurrentException((lineBegin(endpoint, state) + " : a middleware, behind next(),").c_str(),
                                          LogTag);
        }
    }
}

std::string lineBegin(const Endpoint& endpoint, const ResponseState& state) {
    const HeadView& head = state.request.head;
    return head.method() + " " + std::string(head.rawPath()) + " (route " + endpoint.label() + ")";
}

} // namespace impl

void Next::operator()() {
    if (isCalled_) {
        impl::throwLogicError("a middleware calls next() twice");
    }
    isCalled_ = true;
    chain_.goOn();
}

Failure::Failure(int status, std::string text, std::exception_ptr exception)
    : status_(status), text_(std::move(text)), exception_(std::move(exception)) {}

int Failure::status() const {
    return status_;
}

const std::string& Failure::text() const {
    return text_;
}

std::exception_ptr Failure::exception() const {
    return exception_;
}

} // namespace vireo
