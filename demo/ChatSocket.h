#pragma once

#include "vireo/WebSocket.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <set>
#include <vector>

namespace demo {

class ChatSocket;
class Statistics;

/// The open connections. Any thread.
///
/// Lock order: this lock, then that of a connection's write queue. No other lock is held when this one is taken.
class ChatRoom {
public:
    void enter(ChatSocket& socket) QL_EXCLUDES(mutex_);
    void leave(ChatSocket& socket) QL_EXCLUDES(mutex_);
    /// Queues a text message on every connection. @return their number.
    std::size_t sendToAll(const std::vector<unsigned char>& message) QL_EXCLUDES(mutex_);

private:
    qlMutex mutex_;
    /// A connection that is here exists: its destructor takes it out, and waits for this lock to do so.
    std::set<ChatSocket*> sockets_ QL_GUARDED_BY(mutex_);
};

/// A WebSocket that sends every message back, and a text that begins with "/all " to every open connection.
///
/// A peer that sends and does not read makes its write queue grow: an application that cannot trust its peers has to
/// limit what it answers.
class ChatSocket final : public ql::http::WebSocket {
public:
    /// Takes an accepted connection over.
    ChatSocket(ql::http::WebSocket&& accepted, ChatRoom& room, Statistics& statistics);
    ~ChatSocket() override;

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override;

private:
    ChatRoom& room_;
    Statistics& statistics_;
};

} // namespace demo
