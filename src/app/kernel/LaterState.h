// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

namespace vireo {
class Request;
class Response;
} // namespace vireo

namespace vireo::impl {

class AppExchange;
struct Answer;
struct Work;

/// What all copies of a Later stand for. It holds the exchange, not the run. Any thread.
class LaterState {
public:
    /// @param exchange deferred to this.
    explicit LaterState(std::shared_ptr<AppExchange> exchange);
    /// Answers with a plain 500 where nobody has: it may run anywhere, so no function of the application's does.
    ~LaterState();
    LaterState(const LaterState&) = delete;
    LaterState& operator=(const LaterState&) = delete;

    bool answer(const std::function<void(Response&)>& fill);
    bool isGone() const;
    Request& request() const;

private:
    /// Once this one has claimed it.
    void answer(const std::function<void(Response&)>& fill, const Work& work, Answer&& deferred);

    const std::shared_ptr<AppExchange> exchange_;
};

} // namespace vireo::impl
