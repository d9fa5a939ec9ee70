#include "SocketRoutes.h"

#include "vireo/WebSocketSession.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

namespace demo {

namespace {

constexpr std::string_view EchoPath = "/ws";
constexpr std::string_view RoomPath = "/rooms/";
constexpr std::size_t MaxRoomName = 64;
constexpr const char* EchoProtocol = "echo";
constexpr std::string_view ToAll = "/all ";
/// What kind of message is sent is not what this end understands.
constexpr std::uint16_t UnsupportedData = 1003;

/// Counts itself while it is open.
class CountedSession : public ql::http::WebSocketSession {
protected:
    explicit CountedSession(Statistics& statistics) : statistics_(statistics) {}

    Statistics& statistics() { return statistics_; }

    void onOpen() override { statistics_.webSocketOpened(); }
    void onClose(std::uint16_t /*code*/, std::string_view /*reason*/, bool /*isClean*/) override {
        statistics_.webSocketClosed();
    }

private:
    Statistics& statistics_;
};

class EchoSession final : public CountedSession {
public:
    EchoSession(Statistics& statistics, ql::http::WebSocketGroup& all) : CountedSession(statistics), all_(all) {}

private:
    void onOpen() override {
        CountedSession::onOpen();
        all_.add(getHandle());
    }

    void onText(std::string_view text) override {
        statistics().messageReceived();
        std::size_t receivers = 1;
        if (text.starts_with(ToAll)) {
            receivers = all_.sendText(text);
        } else {
            (void)sendText(text);
        }
        statistics().messagesSent(receivers);
    }

    void onBinary(std::span<const unsigned char> bytes) override {
        statistics().messageReceived();
        (void)sendBinary(bytes);
        statistics().messagesSent(1);
    }

    ql::http::WebSocketGroup& all_;
};

class MemberSession final : public CountedSession {
public:
    MemberSession(Statistics& statistics, std::shared_ptr<ql::http::WebSocketGroup> room)
        : CountedSession(statistics), room_(std::move(room)) {}

private:
    void onOpen() override {
        CountedSession::onOpen();
        room_->add(getHandle());
    }

    void onText(std::string_view text) override {
        statistics().messageReceived();
        statistics().messagesSent(room_->sendText(text));
    }

    void onBinary(std::span<const unsigned char> /*bytes*/) override { close(UnsupportedData, "a room takes texts"); }

    const std::shared_ptr<ql::http::WebSocketGroup> room_;
};

bool isRoomName(std::string_view name) {
    return !name.empty() && name.size() <= MaxRoomName && name.find('/') == std::string_view::npos;
}

} // namespace

std::shared_ptr<ql::http::WebSocketGroup> Rooms::enter(const std::string& name) {
    const qlMutexLocker lock(mutex_);
    std::erase_if(rooms_, [](const auto& room) { return room.second.expired(); });
    std::shared_ptr<ql::http::WebSocketGroup> room = rooms_[name].lock();
    if (!room) {
        room = std::make_shared<ql::http::WebSocketGroup>();
        rooms_[name] = room;
    }
    return room;
}

SocketRoutes::SocketRoutes(Statistics& statistics, const ql::http::WebSocketOptions& options, bool anyOrigin)
    : statistics_(statistics), roomOptions_(options), anyOrigin_(anyOrigin) {
    roomOptions_.setQueuePolicy(ql::http::WebSocketOptions::QueuePolicy::DropOldest);
}

bool SocketRoutes::isOriginAllowed(const ql::http::WebSocketOpening& opening) {
    return anyOrigin_ || opening.isSameOrigin();
}

ql::http::WebSocketAnswer SocketRoutes::decide(const ql::http::WebSocketOpening& opening) {
    const std::string& path = opening.getPath();
    if (path == EchoPath) {
        return acceptEcho(opening);
    }
    if (path.starts_with(RoomPath) && isRoomName(std::string_view(path).substr(RoomPath.size()))) {
        return acceptMember(path.substr(RoomPath.size()));
    }
    return ql::http::WebSocketAnswer::Pass();
}

ql::http::WebSocketAnswer SocketRoutes::acceptEcho(const ql::http::WebSocketOpening& opening) {
    auto answer = ql::http::WebSocketAnswer::Accept(std::make_unique<EchoSession>(statistics_, echoes_));
    const auto& offered = opening.getSubprotocols();
    if (std::find(offered.begin(), offered.end(), EchoProtocol) != offered.end()) {
        answer.setSubprotocol(EchoProtocol);
    }
    return answer;
}

ql::http::WebSocketAnswer SocketRoutes::acceptMember(const std::string& room) {
    auto answer = ql::http::WebSocketAnswer::Accept(std::make_unique<MemberSession>(statistics_, rooms_.enter(room)));
    answer.setOptions(roomOptions_);
    return answer;
}

} // namespace demo
