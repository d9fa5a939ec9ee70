#include "vireo/BenchSessions.h"

#include "vireo/WebSocketAcceptor.h"
#include "vireo/WebSocketCompression.h"
#include "vireo/WebSocketGroup.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/WebSocketPool.h"
#include "vireo/WebSocketSession.h"

#include <memory>
#include <span>
#include <string_view>

namespace bench {

namespace {

using ql::http::WebSocketGroup;

class EchoSession : public ql::http::WebSocketSession {
public:
    void onText(std::string_view text) override { sendText(text); }
    void onBinary(std::span<const unsigned char> bytes) override { sendBinary(bytes); }
};

/// Echoes the first message, which tells the peer that it is in, and sends the others to all.
class RoomSession : public EchoSession {
public:
    explicit RoomSession(WebSocketGroup& room) : room_(room) {}

    void onBinary(std::span<const unsigned char> bytes) override {
        if (room_.add(getHandle())) {
            EchoSession::onBinary(bytes);
        } else {
            room_.sendBinary(bytes);
        }
    }

private:
    WebSocketGroup& room_;
};

class Acceptor : public ql::http::WebSocketAcceptor {
public:
    explicit Acceptor(bool broadcast) : broadcast_(broadcast) {}

    ql::http::WebSocketAnswer decide(const ql::http::WebSocketOpening& /*opening*/) override {
        if (broadcast_) {
            return ql::http::WebSocketAnswer::Accept(std::make_unique<RoomSession>(room_));
        }
        return ql::http::WebSocketAnswer::Accept(std::make_unique<EchoSession>());
    }

private:
    const bool broadcast_;
    WebSocketGroup room_;
};

} // namespace

void serveSessions(ql::http::ServerOptions& server, const ServerOptions& options) {
    ql::http::WebSocketOptions sessions;
    sessions.setPool(std::make_shared<ql::http::WebSocketPool>(options.workers));
    if (options.compress) {
        sessions.setCompression({});
    }
    server.setWaiting(ql::http::ServerOptions::Waiting::Event);
    server.setWebSockets(std::make_shared<Acceptor>(options.broadcast), sessions);
}

} // namespace bench
