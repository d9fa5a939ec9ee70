#include "websocket/TestSockets.h"

#include <utility>

namespace wstest {

namespace {

constexpr std::uint64_t None = ~std::uint64_t{0};

} // namespace

SocketPair::~SocketPair() {
    closeServer();
    closeClient();
}

SocketPair::SocketPair(SocketPair&& other) noexcept
    : server(std::exchange(other.server, None)), client(std::exchange(other.client, None)) {}

void SocketPair::closeServer() {
    if (server != None) {
        closeSocket(std::exchange(server, None));
    }
}

void SocketPair::closeClient() {
    if (client != None) {
        closeSocket(std::exchange(client, None));
    }
}

Bytes receiveFrame(std::uint64_t socket) {
    Bytes frame = receiveExactly(socket, 2);
    if (frame.size() < 2) {
        return frame;
    }
    std::size_t length = frame[1] & 0x7FU;
    const std::size_t lengthBytes = length == 126 ? 2 : length == 127 ? 8 : 0;
    if (lengthBytes > 0) {
        const Bytes extended = receiveExactly(socket, lengthBytes);
        length = 0;
        for (const unsigned char byte : extended) {
            length = length << 8 | byte;
        }
        frame.insert(frame.end(), extended.begin(), extended.end());
    }
    const Bytes payload = receiveExactly(socket, length);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

} // namespace wstest
