// SPDX-License-Identifier: MIT
#pragma once

#include "app/sockets/OpeningRequest.h"
#include "app/sockets/SocketHandlers.h"
#include "vireo/WebSocketSession.h"
#include "vireo/app/Socket.h"

#include <memory>
#include <string>

namespace vireo::impl {

struct Registration;

/// One WebSocket of an App: its handlers, and the request that has opened it, to which they may refer.
class AppSession final : public ql::http::WebSocketSession {
public:
    /// @param app whose handlers they are.
    /// @param route for the log.
    AppSession(std::shared_ptr<const Registration> app, std::string route, std::unique_ptr<OpeningRequest> request,
               SocketHandlers&& handlers);
    ~AppSession() override;

    void onOpen() override;
    void onText(std::string_view text) override;
    void onBinary(std::span<const unsigned char> bytes) override;
    void onDrained() override;
    void onClose(std::uint16_t code, std::string_view reason, bool isClean) override;

private:
    /// @throws what the handler throws, with a text that names the route.
    template <class Handler, class... Arguments>
    void call(const Handler& handler, Arguments... arguments);

    const std::shared_ptr<const Registration> app_;
    const std::string route_;
    const std::unique_ptr<OpeningRequest> request_;
    const SocketHandlers handlers_;
    Socket socket_;
};

} // namespace vireo::impl
