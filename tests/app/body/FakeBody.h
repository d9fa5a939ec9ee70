#pragma once

#include "app/body/BodyReader.h"
#include "app/kernel/ClientWaits.h"
#include "support/FakeRequest.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vireotest {

/// Counts waits, and those that have not ended.
class CountedWaits final : public vireo::impl::ClientWaits {
public:
    void begin() noexcept override {
        ++count;
        ++open;
    }
    void end() noexcept override { --open; }

    std::atomic<int> count{0};
    std::atomic<int> open{0};
};

/// The body of a request as the core has it.
class FakeBody {
public:
    void feed(std::string_view bytes) { device().feed(bytes.data(), bytes.size()); }
    void end() {
        const qlMutexLocker locker(device().getLock());
        device().endFeed();
    }
    /// The client goes before the end.
    void cut() {
        end();
        // More than the end gives the device an error, which is what a lost connection leaves as well.
        feed("x");
    }
    ql::HttpReceiveDevice& device() { return request_.editFeedDevice(); }

    static vireo::impl::RequestBody::Limits limits(std::uint64_t maxBody = 1000000,
                                                   std::optional<std::uint64_t> announced = std::nullopt,
                                                   bool isWhole = false) {
        return {maxBody, announced, isWhole};
    }

private:
    FakeServerImpl application_;
    FakeRequest request_{application_};
};

} // namespace vireotest
