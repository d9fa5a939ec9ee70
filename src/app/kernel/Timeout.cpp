#include "vireo/app/Timeout.h"

#include "app/kernel/Answer.h"
#include "app/kernel/AppExchange.h"
#include "app/kernel/Courier.h"
#include "app/kernel/LongestTime.h"
#include "app/kernel/Reason.h"
#include "app/kernel/Service.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/Response.h"

#include <memory>
#include <string>
#include <utility>

namespace vireo {

namespace {

using impl::AppExchange;
using impl::Courier;

/// The time of one answer, which ends with this.
class Limit {
public:
    Limit(AppExchange& exchange, std::shared_ptr<Courier> courier, std::chrono::milliseconds limit, int status)
        : courier_(std::move(courier)),
          timer_(courier_->at(courier_->nowMs() + limit.count(), [weak = exchange.weak_from_this(), status] {
              if (const std::shared_ptr<AppExchange> late = weak.lock()) {
                  impl::Answer answer;
                  answer.setError(status, "it took too long");
                  late->answerInstead(std::move(answer));
              }
          })) {}
    ~Limit() { courier_->cancel(timer_); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

private:
    const std::shared_ptr<Courier> courier_;
    const Courier::TimerId timer_;
};

} // namespace

Middleware timeout(std::chrono::milliseconds limit, int status) {
    if (limit.count() < 1 || limit > impl::LongestTime || status < 400 || status > 599) {
        ql::impl::throwInvalidArgument("vireo::timeout: " + std::to_string(limit.count()) + " ms, status " +
                                       std::to_string(status));
    }
    return [limit, status](Request& /*request*/, Response& response, Next& next) {
        const impl::ResponseState& state = impl::ResponseAccess::state(response);
        if (state.exchange) {
            // A hook goes with the answer, be it the chain's or a Later's.
            response.beforeSend([its = std::make_shared<const Limit>(*state.exchange, state.work->service->courier(),
                                                                     limit, status)](Response&) {});
        }
        next();
    };
}

} // namespace vireo
