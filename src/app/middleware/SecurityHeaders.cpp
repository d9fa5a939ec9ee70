#include "vireo/app/SecurityHeaders.h"

#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/Request.h"
#include "vireo/app/Response.h"

#include <string_view>
#include <utility>

namespace vireo {

namespace impl {

struct SecurityRules {
    static const SecurityRules& of(const SecurityOptions& options) { return *options.rules_; }

    std::string csp = "default-src 'self'; base-uri 'self'; form-action 'self'";
    std::chrono::seconds hsts{31536000};
    std::string frame = "DENY";
    std::string referrer = "no-referrer";
};

namespace {

std::string checked(std::string&& value) {
    if (!ql::impl::isFieldValue(value)) {
        ql::impl::throwInvalidArgument("a header has no control characters");
    }
    return std::move(value);
}

void setMissing(Response& response, std::string_view name, std::string_view value) {
    if (!value.empty() && response.header(name).empty()) {
        response.header(name, value);
    }
}

} // namespace

} // namespace impl

SecurityOptions::SecurityOptions() : rules_(std::make_unique<impl::SecurityRules>()) {}
SecurityOptions::SecurityOptions(const SecurityOptions& other)
    : rules_(std::make_unique<impl::SecurityRules>(*other.rules_)) {}
SecurityOptions::~SecurityOptions() = default;

SecurityOptions& SecurityOptions::operator=(const SecurityOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

SecurityOptions& SecurityOptions::csp(std::string policy) {
    rules_->csp = impl::checked(std::move(policy));
    return *this;
}

SecurityOptions& SecurityOptions::hsts(std::chrono::seconds maxAge) {
    if (maxAge.count() < 0) {
        ql::impl::throwInvalidArgument("the age is negative");
    }
    rules_->hsts = maxAge;
    return *this;
}

SecurityOptions& SecurityOptions::frame(std::string value) {
    rules_->frame = impl::checked(std::move(value));
    return *this;
}

SecurityOptions& SecurityOptions::referrer(std::string policy) {
    rules_->referrer = impl::checked(std::move(policy));
    return *this;
}

Middleware securityHeaders(const SecurityOptions& options) {
    const auto rules = std::make_shared<const impl::SecurityRules>(impl::SecurityRules::of(options));
    return [rules](Request& request, Response& response, Next& next) {
        response.beforeSend([rules, isSecure = request.isSecure()](Response& answer) {
            impl::setMissing(answer, "X-Content-Type-Options", "nosniff");
            impl::setMissing(answer, "Content-Security-Policy", rules->csp);
            impl::setMissing(answer, "X-Frame-Options", rules->frame);
            impl::setMissing(answer, "Referrer-Policy", rules->referrer);
            if (isSecure && rules->hsts.count() > 0) {
                impl::setMissing(answer, "Strict-Transport-Security", "max-age=" + std::to_string(rules->hsts.count()));
            }
        });
        next();
    };
}

} // namespace vireo
