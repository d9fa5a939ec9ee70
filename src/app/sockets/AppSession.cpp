#include "app/sockets/AppSession.h"

#include "app/kernel/ExceptionText.h"
#include "app/kernel/HandlerMark.h"
#include "app/kernel/Scope.h"
#include "app/kernel/Throw.h"
#include "app/sockets/SocketAccess.h"

#include <utility>

namespace vireo::impl {

AppSession::AppSession(std::shared_ptr<const Registration> app, std::string route,
                       std::unique_ptr<OpeningRequest> request, SocketHandlers&& handlers)
    : app_(std::move(app)),
      route_(std::move(route)),
      request_(std::move(request)),
      handlers_(std::move(handlers)),
      socket_(SocketAccess::make(getHandle())) {
    ++app_->sockets;
}

AppSession::~AppSession() {
    --app_->sockets;
}

template <class Handler, class... Arguments>
void AppSession::call(const Handler& handler, Arguments... arguments) {
    if (!handler) {
        return;
    }
    try {
        const HandlerMark mark(*app_);
        handler(socket_, arguments...);
    } catch (...) {
        // The core closes the connection, and logs this.
        throwRuntimeError("a handler of " + std::string(request_->data().head.rawPath()) + " (route " + route_ +
                          ") : " + currentExceptionText());
    }
}

void AppSession::onOpen() {
    call(handlers_.onOpen);
}

void AppSession::onText(std::string_view text) {
    call(handlers_.onText, text);
}

void AppSession::onBinary(std::span<const unsigned char> bytes) {
    call(handlers_.onBinary, bytes);
}

void AppSession::onDrained() {
    call(handlers_.onDrained);
}

void AppSession::onClose(std::uint16_t code, std::string_view reason, bool /*isClean*/) {
    request_->setGone();
    call(handlers_.onClose, code, reason);
}

} // namespace vireo::impl
