#include "app/kernel/Answer.h"
#include "app/kernel/AnswerHeaders.h"
#include "app/kernel/LongestTime.h"
#include "app/kernel/Throw.h"
#include "app/middleware/SessionState.h"
#include "app/request/RequestData.h"
#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/Response.h"
#include "vireo/support/qlSystemUtils.h"

#include <string>
#include <string_view>
#include <utility>

namespace vireo {

namespace {

constexpr std::string_view CacheControl = "Cache-Control";

std::int64_t nowInSeconds() {
    return qlSystemUtils::GetMSecElapsedSinceEpoch() / 1000;
}

std::chrono::seconds checked(std::chrono::seconds time) {
    if (time.count() <= 0 || time > impl::LongestTime) {
        ql::impl::throwInvalidArgument("a session lasts for a second at least and for 100 years at most");
    }
    return time;
}

/// Has no cache between give the answer to somebody else; how long and when the client's own may keep it stays.
void makePrivate(impl::AnswerHeaders& headers) {
    std::string value = "private";
    for (const auto& [key, line] : headers.asMap()) {
        std::string_view rest = ql::impl::isSameWord(line.first, CacheControl) ? line.second : std::string_view();
        while (!rest.empty()) {
            const std::string_view directive = ql::impl::takeElement(rest);
            const std::string_view name = directive.substr(0, directive.find('='));
            const bool isForOthers = ql::impl::isSameWord(name, "public") || ql::impl::isSameWord(name, "s-maxage");
            if (!directive.empty() && !isForOthers && !ql::impl::isSameWord(directive, "private")) {
                value.append(", ").append(directive);
            }
        }
    }
    headers.set(CacheControl, value);
}

} // namespace

SessionOptions::SessionOptions(std::string key) : rules_(std::make_unique<impl::SessionRules>()) {
    formerKey(std::move(key));
}
SessionOptions::SessionOptions(const SessionOptions& other)
    : rules_(std::make_unique<impl::SessionRules>(*other.rules_)) {}
SessionOptions::~SessionOptions() = default;

SessionOptions& SessionOptions::operator=(const SessionOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

SessionOptions& SessionOptions::formerKey(std::string key) {
    const SignedText checked({key});
    rules_->keys.push_back(std::move(key));
    return *this;
}

SessionOptions& SessionOptions::cookie(std::string name) {
    const SetCookie checked(name, "");
    rules_->cookie = std::move(name);
    return *this;
}

SessionOptions& SessionOptions::maxAge(std::chrono::seconds age) {
    rules_->maxAge = checked(age);
    return *this;
}

SessionOptions& SessionOptions::lifetime(std::chrono::seconds time) {
    rules_->lifetime = checked(time);
    return *this;
}

SessionOptions& SessionOptions::sameSite(SetCookie::SameSite sameSite) {
    rules_->sameSite = sameSite;
    return *this;
}

SessionOptions& SessionOptions::secure(bool on) {
    rules_->isSecure = on;
    return *this;
}

const std::string& Session::get(std::string_view name) const {
    return state_.get(name);
}

void Session::set(std::string_view name, std::string_view value) {
    state_.set(name, value);
}

void Session::erase(std::string_view name) {
    state_.erase(name);
}

void Session::clear() {
    state_.clear();
}

bool Session::isEmpty() const {
    return state_.isEmpty();
}

Sessions::Sessions(const SessionOptions& options)
    : maker_(std::make_shared<const impl::SessionMaker>(impl::SessionRules::of(options))) {}
Sessions::Sessions(const Sessions& other) = default;
Sessions& Sessions::operator=(const Sessions& other) = default;
Sessions::~Sessions() = default;

Middleware Sessions::middleware() const {
    return [maker = maker_](Request& request, Response& response, Next& next) {
        auto& place = request[maker->key];
        if (place.state) {
            // The one of a scope around has it.
            next();
            return;
        }
        place.state = std::make_unique<impl::SessionState>(maker, impl::RequestAccess::data(request), request.cookies(),
                                                           request.isSecure(), nowInSeconds());
        // It lives as long as the request, and so as long as the answer.
        response.beforeSend([state = place.state.get()](Response& answer) {
            if (const std::optional<SetCookie> cookie = state->close(nowInSeconds())) {
                answer.cookie(*cookie);
                makePrivate(impl::ResponseAccess::state(answer).answer.headers);
            }
            if (state->isUsed()) {
                answer.addHeader("Vary", "Cookie");
            }
        });
        next();
    };
}

Session& Sessions::of(Request& request) const {
    auto& place = request[maker_->key];
    if (!place.state) {
        impl::throwLogicError("Sessions::of() : its middleware is not in the chain of \"" + request.route() + "\"");
    }
    return place.state->session();
}

} // namespace vireo
