#include "vireo/app/RateLimit.h"

#include "app/kernel/LongestTime.h"
#include "app/middleware/NetworkName.h"
#include "app/middleware/TokenBuckets.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Request.h"
#include "vireo/support/qlSystemUtils.h"

#include <cstdint>
#include <utility>

namespace vireo {

namespace impl {

struct RateRules {
    static const RateRules& of(const RateOptions& options) { return *options.rules_; }

    /// 0: as many as in the whole time.
    unsigned int burst = 0;
    std::function<std::string(Request&)> key;
};

} // namespace impl

RateOptions::RateOptions() : rules_(std::make_unique<impl::RateRules>()) {}
RateOptions::RateOptions(const RateOptions& other) : rules_(std::make_unique<impl::RateRules>(*other.rules_)) {}
RateOptions::~RateOptions() = default;

RateOptions& RateOptions::operator=(const RateOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

RateOptions& RateOptions::burst(unsigned int requests) {
    if (requests == 0) {
        ql::impl::throwInvalidArgument("a burst is of one request at least");
    }
    rules_->burst = requests;
    return *this;
}

RateOptions& RateOptions::key(std::function<std::string(Request&)> key) {
    rules_->key = std::move(key);
    return *this;
}

Middleware rateLimit(unsigned int requests, std::chrono::milliseconds per, const RateOptions& options) {
    if (requests == 0 || per.count() <= 0) {
        ql::impl::throwInvalidArgument("a rate is of one request at least, in a millisecond or more");
    }
    // Whose microseconds can be counted.
    constexpr std::chrono::milliseconds Longest = impl::LongestTime;
    const impl::RateRules& rules = impl::RateRules::of(options);
    const unsigned int burst = rules.burst != 0 ? rules.burst : requests;
    if (per > Longest || per / requests > Longest / burst) {
        ql::impl::throwInvalidArgument("a rate's time, and that in which its burst comes back, are 100 years at most");
    }
    constexpr int TooManyRequests = 429;
    const auto buckets = std::make_shared<impl::TokenBuckets>(requests, per.count(), burst);
    return [buckets, key = std::make_shared<const std::function<std::string(Request&)>>(rules.key)](
               Request& request, Response&, Next& next) {
        const std::string client = *key ? (*key)(request) : impl::networkName(request.clientAddress());
        const std::int64_t waitMs = buckets->take(buckets->nameOf(client), qlSystemUtils::GetTimeBaseMs());
        if (waitMs > 0) {
            throw HttpError(HttpError(TooManyRequests).header("Retry-After", std::to_string((waitMs + 999) / 1000)));
        }
        next();
    };
}

} // namespace vireo
