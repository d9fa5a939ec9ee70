#include "ChatSocket.h"

#include "Statistics.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace demo {

namespace {

bool isForAll(const std::vector<unsigned char>& message) {
    constexpr std::string_view Prefix = "/all ";
    return message.size() >= Prefix.size() && std::equal(Prefix.begin(), Prefix.end(), message.begin());
}

} // namespace

void ChatRoom::enter(ChatSocket& socket) {
    const qlMutexLocker lock(mutex_);
    sockets_.insert(&socket);
}

void ChatRoom::leave(ChatSocket& socket) {
    const qlMutexLocker lock(mutex_);
    sockets_.erase(&socket);
}

std::size_t ChatRoom::sendToAll(const std::vector<unsigned char>& message) {
    const qlMutexLocker lock(mutex_);
    for (ChatSocket* const socket : sockets_) {
        socket->writeMessage(message.data(), message.size(), false); // only queues; the pool sends
    }
    return sockets_.size();
}

ChatSocket::ChatSocket(ql::http::WebSocket&& accepted, ChatRoom& room, Statistics& statistics)
    : WebSocket(std::move(accepted)), room_(room), statistics_(statistics) {
    room_.enter(*this);
    statistics_.webSocketOpened();
}

ChatSocket::~ChatSocket() {
    room_.leave(*this);
    statistics_.webSocketClosed();
}

void ChatSocket::onMessageReceived(std::vector<unsigned char>& message, bool isBinary) {
    statistics_.messageReceived();
    if (!isBinary && isForAll(message)) {
        statistics_.messagesSent(room_.sendToAll(message));
        return;
    }
    writeMessage(message.data(), message.size(), isBinary);
    statistics_.messagesSent(1);
}

} // namespace demo
