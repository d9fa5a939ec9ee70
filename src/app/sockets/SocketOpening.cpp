#include "vireo/app/SocketOpening.h"

#include "app/kernel/Reason.h"
#include "app/sockets/OpeningState.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <utility>

namespace vireo {

SocketEvents::SocketEvents(impl::SocketHandlers& handlers) : handlers_(handlers) {}

SocketEvents::~SocketEvents() = default;

SocketEvents& SocketEvents::onOpen(std::function<void(Socket&)> handler) {
    handlers_.onOpen = std::move(handler);
    return *this;
}

SocketEvents& SocketEvents::onText(std::function<void(Socket&, std::string_view)> handler) {
    handlers_.onText = std::move(handler);
    return *this;
}

SocketEvents& SocketEvents::onBinary(std::function<void(Socket&, std::span<const unsigned char>)> handler) {
    handlers_.onBinary = std::move(handler);
    return *this;
}

SocketEvents& SocketEvents::onDrained(std::function<void(Socket&)> handler) {
    handlers_.onDrained = std::move(handler);
    return *this;
}

SocketEvents& SocketEvents::onClose(std::function<void(Socket&, std::uint16_t, std::string_view)> handler) {
    handlers_.onClose = std::move(handler);
    return *this;
}

SocketOpening::SocketOpening(impl::OpeningState& state) : state_(state) {}

SocketOpening::~SocketOpening() = default;

SocketEvents& SocketOpening::accept() {
    state_.isAccepted = true;
    // What a refusal may have left.
    impl::Answer& answer = state_.answer;
    if (answer.isSet) {
        answer.status = 200;
        answer.body.clear();
        answer.headers.remove("Content-Type");
        answer.isSet = false;
    }
    return state_.events;
}

void SocketOpening::refuse(int status, std::string text) {
    if (status < static_cast<int>(ql::http::WebSocketAnswer::MinRefusal) ||
        status > static_cast<int>(ql::http::WebSocketAnswer::MaxRefusal)) {
        ql::impl::throwInvalidArgument("vireo::SocketOpening::refuse: the status " + std::to_string(status) +
                                       " refuses nothing: those from 300 to 599 do");
    }
    state_.isAccepted = false;
    state_.answer.status = status;
    state_.answer.setText((text.empty() ? std::string(impl::reasonPhrase(status)) : std::move(text)) + "\n",
                          "text/plain; charset=utf-8");
}

const std::string& SocketOpening::origin() const {
    return state_.opening.getOrigin();
}

bool SocketOpening::isSameOrigin() const {
    return state_.head.isFrom(origin());
}

const std::vector<std::string>& SocketOpening::subprotocols() const {
    return state_.opening.getSubprotocols();
}

void SocketOpening::subprotocol(std::string name) {
    const std::vector<std::string>& offered = subprotocols();
    if (std::find(offered.begin(), offered.end(), name) == offered.end()) {
        ql::impl::throwInvalidArgument("vireo::SocketOpening::subprotocol: the client does not offer \"" + name + "\"");
    }
    state_.subprotocol = std::move(name);
}

void SocketOpening::header(std::string_view name, std::string_view value) {
    state_.checker.addHeader(std::string(name), std::string(value));
    state_.answer.headers.add(name, value);
}

void SocketOpening::options(const ql::http::WebSocketOptions& options) {
    state_.options = options;
}

} // namespace vireo
