#include "vireo/app/Response.h"

#include "app/events/ChannelState.h"
#include "app/files/FileAnswer.h"
#include "app/kernel/Answer.h"
#include "app/kernel/AppExchange.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/FieldRules.h"
#include "app/kernel/HandlerMark.h"
#include "app/kernel/Reason.h"
#include "app/kernel/Streaming.h"
#include "app/kernel/Throw.h"
#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/ClientGone.h"

#include <memory>
#include <string>
#include <utility>

namespace vireo {

namespace {

using impl::Answer;
using impl::HandlerMark;
using impl::ResponseState;

constexpr int MinStatus = 200;
constexpr int FirstError = 400;
constexpr int MaxStatus = 599;
constexpr int FirstRedirect = 300;
constexpr int LastRedirect = 399;

constexpr std::string_view ContentType = "Content-Type";

bool isContentType(std::string_view name) {
    return ql::impl::isSameWord(name, ContentType);
}

void checkStatus(int status, int least, int most) {
    if (status < least || status > most) {
        ql::impl::throwInvalidArgument("the status is " + std::to_string(status) + ", not " + std::to_string(least) +
                                       " to " + std::to_string(most));
    }
}

/// The answer, while it can still be changed.
Answer& open(ResponseState& state) {
    if (!HandlerMark::isSet()) {
        // Then the state may be gone, and is not to be looked at.
        impl::throwLogicError("a Response is for the function that it was given to, on its thread, until that returns: "
                              "other threads answer by Response::later()");
    }
    state.isChangedLate = state.later != nullptr || state.isSent;
    if (state.later != nullptr) {
        impl::throwLogicError("the answer was left to a Later: set it in Later::answer(), or in a hook of "
                              "Response::beforeSend() that is given before");
    }
    if (state.isSent) {
        impl::throwLogicError("the head of the answer has gone: set it before, or in Response::beforeSend()");
    }
    return state.answer;
}

/// The same, for a body.
Answer& openBody(ResponseState& state) {
    Answer& answer = open(state);
    if (answer.isStream) {
        impl::throwLogicError("the body is a stream: a hook of beforeSend() cannot set another one");
    }
    return answer;
}

/// @throws std::logic_error where an answer cannot go on behind the handler.
void checkHandler(const ResponseState& state, const char* what) {
    if (state.holder == ResponseState::Holder::Opening) {
        impl::throwLogicError(std::string(what) + " : a WebSocket's opening is accepted or refused at once");
    }
    if (state.holder == ResponseState::Holder::Later || state.isClosing) {
        impl::throwLogicError(std::string(what) + " : only a handler or a middleware can call it");
    }
}

void checkStream(ResponseState& state) {
    checkHandler(state, "Response::stream()");
    if (const int status = openBody(state).status; impl::isBodiless(status)) {
        impl::throwLogicError("Response::stream() : an answer with status " + std::to_string(status) + " has no body");
    }
    if (state.work->endpoint->isQuick) {
        impl::throwLogicError("Response::stream() : not in a quick handler, whose thread must not wait for a client");
    }
}

} // namespace

Response& Response::status(int status) {
    checkStatus(status, MinStatus, MaxStatus);
    open(state_).status = status;
    return *this;
}

Response& Response::header(std::string_view name, std::string_view value) {
    impl::checkField(name, value);
    Answer& answer = open(state_);
    answer.headers.set(name, value);
    answer.isTypeOfBody = answer.isTypeOfBody && !isContentType(name);
    return *this;
}

Response& Response::addHeader(std::string_view name, std::string_view value) {
    impl::checkField(name, value);
    Answer& answer = open(state_);
    if (impl::isSingular(name) && answer.headers.find(name) != nullptr) {
        ql::impl::throwInvalidArgument("an answer has the header " + std::string(name) + " once at most");
    }
    answer.headers.add(name, value);
    answer.isTypeOfBody = answer.isTypeOfBody && !isContentType(name);
    return *this;
}

Response& Response::removeHeader(std::string_view name) {
    open(state_).headers.remove(name);
    return *this;
}

Response& Response::cookie(const SetCookie& cookie) {
    open(state_).headers.setCookie(cookie.getName(), cookie.toString());
    return *this;
}

Response& Response::cookie(std::string name, std::string value) {
    return cookie(SetCookie(std::move(name), std::move(value)).setPath("/"));
}

Response& Response::type(std::string_view mime) {
    return header(ContentType, mime);
}

void Response::text(std::string text) {
    openBody(state_).setText(std::move(text), "text/plain; charset=utf-8");
}

void Response::html(std::string text) {
    openBody(state_).setText(std::move(text), "text/html; charset=utf-8");
}

void Response::bytes(std::string bytes, std::string_view mime) {
    openBody(state_);
    type(mime);
    state_.answer.setText(std::move(bytes), mime);
    state_.answer.isTypeOfBody = true;
}

void Response::jsonText(std::string json) {
    openBody(state_).setText(std::move(json), "application/json");
}

void Response::empty(int status) {
    checkStatus(status, MinStatus, MaxStatus);
    Answer& answer = openBody(state_);
    answer.dropBody();
    answer.status = status;
    answer.isSet = true;
}

void Response::redirect(std::string_view location, int status) {
    checkStatus(status, FirstRedirect, LastRedirect);
    if (location.empty()) {
        ql::impl::throwInvalidArgument("Response::redirect() : the location is empty");
    }
    openBody(state_);
    header("Location", location);
    empty(status);
}

void Response::error(int status) {
    error(status, impl::reasonPhrase(status));
}

void Response::error(int status, std::string text) {
    checkStatus(status, FirstError, MaxStatus);
    openBody(state_).setError(status, std::move(text));
}

void Response::file(const std::string& path) {
    impl::answerFile(state_.request, openBody(state_), path, nullptr);
}

void Response::download(const std::string& path, const std::string& name) {
    impl::answerFile(state_.request, openBody(state_), path, &name);
}

void Response::stream(const std::function<void(Output&)>& write) {
    checkStream(state_);
    impl::streamAnswer(state_, std::nullopt, write);
}

void Response::stream(std::uint64_t length, const std::function<void(Output&)>& write) {
    checkStream(state_);
    impl::streamAnswer(state_, length, write);
}

void Response::events(const EventChannel& channel) {
    if (state_.holder == ResponseState::Holder::Opening) {
        checkHandler(state_, "Response::events()");
    }
    impl::answerEvents(state_.request, openBody(state_), channel);
}

Later Response::later() {
    checkHandler(state_, "Response::later()");
    if (state_.isSent) {
        open(state_);
    }
    if (state_.later == nullptr) {
        state_.later = state_.exchange->defer(state_.answer, *state_.work);
    }
    if (state_.later == nullptr) {
        throw ClientGone();
    }
    return Later(state_.later);
}

void Response::beforeSend(Hook hook) {
    open(state_).hooks.push_back(std::move(hook));
}

int Response::status() const {
    return state_.answer.status;
}

std::string Response::header(std::string_view name) const {
    const std::string* const value = state_.answer.headers.find(name);
    return value == nullptr ? std::string() : *value;
}

bool Response::isSet() const {
    return state_.answer.isSet || state_.later != nullptr;
}

bool Response::isSent() const {
    return state_.isSent;
}

} // namespace vireo
