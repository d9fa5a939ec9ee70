#include "app/events/ChannelState.h"
#include "app/kernel/Answer.h"
#include "app/kernel/AppExchange.h"
#include "app/kernel/Courier.h"
#include "app/kernel/Service.h"
#include "vireo/app/EventChannel.h"

#include <memory>
#include <string>
#include <utility>

namespace vireo::impl {

namespace {

/// The answer of an exchange.
class ExchangeOutput final : public EventOutput {
public:
    explicit ExchangeOutput(std::shared_ptr<AppExchange> exchange) : exchange_(std::move(exchange)) {}

    bool isEmpty() const override { return exchange_->queuedBytes() == 0; }
    void write(std::string_view text) override {
        exchange_->write(text, nullptr);
        exchange_->flush(nullptr);
    }
    void end() override { exchange_->endStream(); }
    void cut() noexcept override { exchange_->breakOff("SlowConsumer"); }

private:
    const std::shared_ptr<AppExchange> exchange_;
};

void subscribe(const std::shared_ptr<ChannelState>& channel, ChannelState::Place& place,
               const std::shared_ptr<AppExchange>& exchange, Service& service) {
    std::string greeting;
    if (channel->rules().retryMs) {
        greeting = "retry: " + std::to_string(*channel->rules().retryMs) + "\n\n";
    }
    const std::shared_ptr<Courier> courier = service.courier();
    const auto subscription = std::make_shared<Subscription>(
        channel, courier, std::make_unique<ExchangeOutput>(exchange), std::move(greeting));
    if (!exchange->listenEnd(subscription)) {
        return;
    }
    if (!service.addSubscription(subscription) || !channel->add(subscription, courier, place)) {
        exchange->endStream();
    }
}

} // namespace

void answerEvents(RequestData& request, Answer& answer, const EventChannel& channel) {
    const std::shared_ptr<ChannelState> state = ChannelState::of(channel);
    answer.dropBody();
    answer.isSet = true;
    const std::string lastId = request.head.header("Last-Event-ID");
    if (!state->hasMore(lastId)) {
        answer.status = 204;
        return;
    }
    const std::shared_ptr<ChannelState::Place> place = state->reserve(lastId);
    if (!place) {
        answer.setError(503, "too many listeners");
        return;
    }
    answer.headers.set("Content-Type", "text/event-stream");
    answer.isTypeOfBody = true;
    answer.headers.set("Cache-Control", "no-store");
    answer.headers.set("X-Accel-Buffering", "no");
    answer.begin = [state, place](const std::shared_ptr<AppExchange>& exchange, Service& service) {
        subscribe(state, *place, exchange, service);
    };
}

} // namespace vireo::impl
