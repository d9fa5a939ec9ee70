#include "vireo/app/CrossOriginProtection.h"

#include "app/request/Authority.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Request.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo {

namespace impl {

struct CrossOriginRules {
    static const CrossOriginRules& of(const CrossOriginOptions& options) { return *options.rules_; }

    bool trusts(std::string_view origin) const {
        return std::ranges::any_of(origins,
                                   [origin](const std::string& trusted) { return isSameOrigin(trusted, origin); });
    }

    std::vector<std::string> origins;
};

namespace {

/// Those that change nothing (RFC 9110 section 9.2.1).
bool isSafe(std::string_view method) {
    constexpr std::array<std::string_view, 4> Safe = {"GET", "HEAD", "OPTIONS", "TRACE"};
    return std::ranges::find(Safe, method) != Safe.end();
}

bool isFromHere(const Request& request, const std::string& origin) {
    const std::string& site = request.header("Sec-Fetch-Site");
    if (!site.empty()) {
        return site == "same-origin" || site == "none";
    }
    return origin.empty() || isSameOrigin(origin, request.scheme() + "://" + request.host());
}

} // namespace

} // namespace impl

CrossOriginOptions::CrossOriginOptions() : rules_(std::make_unique<impl::CrossOriginRules>()) {}
CrossOriginOptions::CrossOriginOptions(const CrossOriginOptions& other)
    : rules_(std::make_unique<impl::CrossOriginRules>(*other.rules_)) {}
CrossOriginOptions::~CrossOriginOptions() = default;

CrossOriginOptions& CrossOriginOptions::operator=(const CrossOriginOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

CrossOriginOptions& CrossOriginOptions::trust(std::string origin) {
    if (!impl::isOrigin(origin)) {
        ql::impl::throwInvalidArgument("\"" + origin + "\" is no origin, such as https://example.org");
    }
    rules_->origins.push_back(std::move(origin));
    return *this;
}

Middleware crossOriginProtection(const CrossOriginOptions& options) {
    constexpr int Forbidden = 403;
    const auto rules = std::make_shared<const impl::CrossOriginRules>(impl::CrossOriginRules::of(options));
    return [rules](Request& request, Response&, Next& next) {
        const std::string& origin = request.header("Origin");
        if (!impl::isSafe(request.method()) && !impl::isFromHere(request, origin) && !rules->trusts(origin)) {
            throw HttpError(Forbidden);
        }
        next();
    };
}

} // namespace vireo
