#include "websocket/WebSocketLink.h"

#include "frame/ExceptionLog.h"
#include "websocket/WebSocketState.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace ql::impl {

void WebSocketLink::setState(WebSocketState* state) {
    const qlMutexLocker locker(mutex_);
    state_ = state;
    // The object it comes from may have been told while this one took over.
    pass();
}

void WebSocketLink::sayGoodbye() noexcept {
    const qlMutexLocker locker(mutex_);
    isTold_ = true;
    pass();
}

void WebSocketLink::pass() noexcept {
    if (!isTold_ || state_ == nullptr) {
        return;
    }
    try {
        state_->sayGoodbye();
    } catch (...) {
        logCurrentException("a farewell to a WebSocket", "httpserver");
    }
}

void WebSocketRoster::add(http::WebSocket& socket) {
    const auto link = std::make_shared<WebSocketLink>();
    WebSocketState& state = WebSocketState::of(socket);
    bool isLeaving = false;
    {
        const qlMutexLocker locker(mutex_);
        if (links_.size() == links_.capacity()) {
            forgetGone();
        }
        links_.push_back(link);
        isLeaving = isLeaving_;
    }
    state.setLink(link);
    if (isLeaving) {
        link->sayGoodbye();
    }
}

void WebSocketRoster::sayGoodbye() noexcept {
    std::vector<std::weak_ptr<WebSocketLink>> links;
    {
        const qlMutexLocker locker(mutex_);
        isLeaving_ = true;
        links.swap(links_);
    }
    for (const std::weak_ptr<WebSocketLink>& link : links) {
        if (const std::shared_ptr<WebSocketLink> living = link.lock()) {
            living->sayGoodbye();
        }
    }
}

void WebSocketRoster::forgetGone() {
    std::erase_if(links_, [](const std::weak_ptr<WebSocketLink>& link) { return link.expired(); });
    // Room for as many again, so that looking for the gone ones is rare.
    links_.reserve(2 * links_.size() + 1);
}

} // namespace ql::impl
