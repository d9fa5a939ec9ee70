#pragma once

#include "vireo/WebSocket.h"
#include "websocket/Frames.h"

#include <cstddef>
#include <stdexcept>

namespace vireotest {

/// What the handler of a message does besides noting it; the message's first byte says which.
enum class Reaction : unsigned char { Nothing, Echo, EchoTwice, Throw, EchoAndClose };

/// A message of which no other has kind and number.
inline wstest::Bytes numberedMessage(unsigned char kind, std::size_t number, std::size_t size) {
    wstest::Bytes message = wstest::pattern(size + 2);
    message[0] = kind;
    message[1] = static_cast<unsigned char>(number);
    return message;
}

/// What the handlers of the models throw on purpose.
struct HandlerFailure : std::runtime_error {
    HandlerFailure() : std::runtime_error("the handler fails") {}
};

/// What a worker does with a connection in its turn. @return false when it is to be closed.
inline bool serveAsWorker(ql::http::WebSocket& socket) {
    socket.assignCurrentThread();
    const bool sent = socket.sendDataIfAvailable();
    const bool read = socket.readDataIfAvailable();
    socket.clearCurrentThread();
    return sent && read;
}

} // namespace vireotest
