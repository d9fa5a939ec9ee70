#include "vireo/app/Cors.h"

#include "app/request/Authority.h"
#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/Request.h"
#include "vireo/app/Response.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo {

namespace impl {

struct CorsRules {
    static const CorsRules& of(const CorsOptions& options) { return *options.rules_; }

    bool isAnyOrigin() const { return origins.empty() || names("*"); }
    bool names(std::string_view origin) const { return std::ranges::find(origins, origin) != origins.end(); }
    bool allows(std::string_view origin) const {
        return isAnyOrigin() || std::ranges::any_of(origins, [origin](const std::string& allowed) {
                   return ql::impl::isSameWord(allowed, origin);
               });
    }

    std::vector<std::string> origins;
    std::vector<std::string> methods;
    std::vector<std::string> headers;
    std::vector<std::string> exposed;
    bool hasCredentials = false;
    std::chrono::seconds maxAge{600};
};

namespace {

constexpr std::string_view Origin = "Origin";
constexpr std::string_view AskedMethod = "Access-Control-Request-Method";
constexpr std::string_view AskedHeaders = "Access-Control-Request-Headers";

std::string join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

void addName(std::vector<std::string>& names, std::string&& name) {
    if (!ql::impl::isToken(name)) {
        ql::impl::throwInvalidArgument("\"" + name + "\" is no name of a method or header");
    }
    names.push_back(std::move(name));
}

/// What is on each answer, to a preflight as well.
void setCommon(const CorsRules& rules, const std::string& origin, Response& response) {
    if (!rules.isAnyOrigin()) {
        response.addHeader("Vary", Origin);
    }
    // What all may read says so to those as well who name no origin: it may be kept for a page that does.
    if (!rules.allows(origin)) {
        return;
    }
    response.header("Access-Control-Allow-Origin", rules.isAnyOrigin() ? "*" : origin);
    if (rules.hasCredentials) {
        response.header("Access-Control-Allow-Credentials", "true");
    }
}

void answerPreflight(const CorsRules& rules, const Request& request, Response& response) {
    const std::string& origin = request.header(Origin);
    setCommon(rules, origin, response);
    if (rules.headers.empty()) {
        response.addHeader("Vary", AskedHeaders);
    }
    response.empty();
    if (!rules.allows(origin)) {
        return;
    }
    static constexpr std::string_view UsualMethods = "GET, HEAD, POST, PUT, PATCH, DELETE";
    response.header("Access-Control-Allow-Methods",
                    rules.methods.empty() ? std::string(UsualMethods) : join(rules.methods));
    const std::string headers = rules.headers.empty() ? request.header(AskedHeaders) : join(rules.headers);
    if (!headers.empty()) {
        response.header("Access-Control-Allow-Headers", headers);
    }
    response.header("Access-Control-Max-Age", std::to_string(rules.maxAge.count()));
}

} // namespace

} // namespace impl

CorsOptions::CorsOptions() : rules_(std::make_unique<impl::CorsRules>()) {}
CorsOptions::CorsOptions(const CorsOptions& other) : rules_(std::make_unique<impl::CorsRules>(*other.rules_)) {}
CorsOptions::~CorsOptions() = default;

CorsOptions& CorsOptions::operator=(const CorsOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

CorsOptions& CorsOptions::origin(std::string origin) {
    if (origin != "*" && origin != "null" && !impl::isOrigin(origin)) {
        ql::impl::throwInvalidArgument("\"" + origin + "\" is no origin, such as https://example.org");
    }
    rules_->origins.push_back(std::move(origin));
    return *this;
}

CorsOptions& CorsOptions::method(std::string method) {
    impl::addName(rules_->methods, std::move(method));
    return *this;
}

CorsOptions& CorsOptions::header(std::string name) {
    impl::addName(rules_->headers, std::move(name));
    return *this;
}

CorsOptions& CorsOptions::expose(std::string name) {
    impl::addName(rules_->exposed, std::move(name));
    return *this;
}

CorsOptions& CorsOptions::credentials(bool on) {
    rules_->hasCredentials = on;
    return *this;
}

CorsOptions& CorsOptions::maxAge(std::chrono::seconds age) {
    if (age.count() < 0) {
        ql::impl::throwInvalidArgument("the age is negative");
    }
    rules_->maxAge = age;
    return *this;
}

Middleware cors(const CorsOptions& options) {
    const auto rules = std::make_shared<const impl::CorsRules>(impl::CorsRules::of(options));
    if (rules->hasCredentials && (rules->isAnyOrigin() || rules->names("null"))) {
        ql::impl::throwInvalidArgument("credentials take the origins that may send them, and \"null\" is all of them");
    }
    return [rules](Request& request, Response& response, Next& next) {
        const std::string& origin = request.header(impl::Origin);
        if (request.method() == "OPTIONS" && !origin.empty() && !request.header(impl::AskedMethod).empty()) {
            impl::answerPreflight(*rules, request, response);
            return;
        }
        response.beforeSend([rules, origin](Response& answer) {
            impl::setCommon(*rules, origin, answer);
            if (rules->allows(origin) && !rules->exposed.empty()) {
                answer.header("Access-Control-Expose-Headers", impl::join(rules->exposed));
            }
        });
        next();
    };
}

} // namespace vireo
