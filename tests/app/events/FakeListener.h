#pragma once

#include "app/events/Subscription.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace eventtest {

/// What a listener got: one text for each hand-over.
struct Received {
    std::vector<std::string> handOvers;
    bool isEmpty = true; ///< takes at once; set by a test
    bool isSlow = false; ///< takes nothing by itself: isEmpty is false after a hand-over
    bool hasEnded = false;
    bool wasCut = false;
    std::function<void()> onWrite; ///< called when it takes something

    std::string all() const {
        std::string text;
        for (const std::string& handOver : handOvers) {
            text += handOver;
        }
        return text;
    }
};

class FakeOutput : public vireo::impl::EventOutput {
public:
    explicit FakeOutput(std::shared_ptr<Received> received) : received_(std::move(received)) {}

    bool isEmpty() const override { return received_->isEmpty; }
    void write(std::string_view text) override {
        received_->handOvers.emplace_back(text);
        received_->isEmpty = !received_->isSlow;
        if (received_->onWrite) {
            received_->onWrite();
        }
    }
    void end() override { received_->hasEnded = true; }
    void cut() noexcept override { received_->wasCut = true; }

private:
    const std::shared_ptr<Received> received_;
};

} // namespace eventtest
