// Sends every WebSocket message to all connections. Browsers reach it through the proxy of ../reverse-proxy.

#include "skeleton/WebSocketServer.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace {

/// The open connections. Any thread.
class Room {
public:
    void enter(ql::http::WebSocket& socket) QL_EXCLUDES(mutex_) {
        const qlMutexLocker lock(mutex_);
        sockets_.insert(&socket);
    }

    void leave(ql::http::WebSocket& socket) QL_EXCLUDES(mutex_) {
        const qlMutexLocker lock(mutex_);
        sockets_.erase(&socket);
    }

    /// Only queues; the pool sends. A peer that does not read makes its queue grow: where strangers may connect, note
    /// when each was heard of last, and let go of those that are silent.
    void send(const std::vector<unsigned char>& message, bool isBinary) QL_EXCLUDES(mutex_) {
        const qlMutexLocker lock(mutex_);
        for (ql::http::WebSocket* const socket : sockets_) {
            socket->writeMessage(message.data(), message.size(), isBinary);
        }
    }

private:
    qlMutex mutex_;
    /// A connection that is here exists: its destructor takes it out, and waits for this lock to do so.
    std::set<ql::http::WebSocket*> sockets_ QL_GUARDED_BY(mutex_);
};

class Member final : public ql::http::WebSocket {
public:
    Member(WebSocket&& accepted, Room& room) : WebSocket(std::move(accepted)), room_(room) { room_.enter(*this); }
    ~Member() override { room_.leave(*this); }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        room_.send(message, isBinary);
    }

private:
    Room& room_;
};

class BroadcastServer final : public skeleton::WebSocketServer {
public:
    explicit BroadcastServer(Room& room) : room_(room) {}

private:
    std::unique_ptr<ql::http::WebSocket> makeSocket(ql::http::WebSocket&& accepted) override {
        return std::make_unique<Member>(std::move(accepted), room_);
    }

    Room& room_;
};

} // namespace

int main(int argc, char** argv) {
    Room room;
    ql::http::HttpServer::Parameters parameters = skeleton::parametersOf(argc, argv);
    parameters.webSocketEnabled = true;
    return skeleton::serveUntilSignal("websocket-broadcast", parameters,
                                      [&room] { return std::make_unique<BroadcastServer>(room); });
}
