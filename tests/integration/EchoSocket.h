#pragma once

#include "support/RawClient.h"
#include "support/TestServer.h"
#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireotest {

/// A connection that sends every message back, and counts itself while it exists.
class EchoSocket : public ql::http::WebSocket {
public:
    EchoSocket(ql::http::WebSocket&& accepted, std::atomic<int>& alive)
        : WebSocket(std::move(accepted)), alive_(alive) {
        ++alive_;
    }
    ~EchoSocket() override { --alive_; }

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        writeMessage(message.data(), message.size(), isBinary);
    }

private:
    std::atomic<int>& alive_;
};

/// What an application does in acceptWebSocket(): also when memory is short, the connection is closed or in the pool.
inline void addEchoSocket(ql::http::WebSocketThread& pool, ql::http::WebSocket* accepted, std::atomic<int>& alive) {
    std::unique_ptr<ql::http::WebSocket> socket(accepted);
    try {
        socket = std::make_unique<EchoSocket>(std::move(*socket), alive);
        pool.addWebSocket(socket);
    } catch (...) {
        socket->markForDeletion();
        throw;
    }
}

/// Has a server echo what its WebSockets send, which `alive` counts.
inline void echoWebSockets(TestImpl::Behaviour& behaviour, std::atomic<int>& alive) {
    behaviour.webSocketThreads = 2;
    behaviour.onWebSocket = [&alive](ql::http::WebSocketThread& pool, ql::http::WebSocket* accepted) {
        addEchoSocket(pool, accepted, alive);
    };
}

/// Makes a client one of a WebSocket. Throws when the server refuses it.
inline void upgrade(RawClient& client) {
    client.send(get("/socket", "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                               "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"));
    if (client.readHead().status != 101) {
        throw std::runtime_error("the handshake is refused");
    }
}

/// A client whose handshake is done. Throws when the server refuses it.
inline RawClient openWebSocket(std::uint16_t port, const std::string& host = "127.0.0.1") {
    RawClient client(port, host);
    upgrade(client);
    return client;
}

/// A masked frame as clients send it, of fewer than 65536 bytes.
inline std::string clientFrame(std::string_view payload, unsigned int opcode) {
    constexpr std::string_view Mask = "\x11\x22\x33\x44";
    std::string frame(1, static_cast<char>(0x80U | opcode));
    if (payload.size() < 126) {
        frame += static_cast<char>(0x80U | payload.size());
    } else {
        frame += static_cast<char>(0xFE);
        frame += static_cast<char>(payload.size() >> 8U);
        frame += static_cast<char>(payload.size() & 0xFFU);
    }
    frame += Mask;
    for (std::size_t i = 0; i < payload.size(); ++i) {
        frame += static_cast<char>(payload[i] ^ Mask[i % Mask.size()]);
    }
    return frame;
}

inline std::string textFrame(std::string_view payload) {
    return clientFrame(payload, 1);
}

/// Receives one unmasked frame of fewer than 65536 bytes: its first byte and its payload.
inline std::pair<unsigned char, std::string> readFrame(RawClient& client) {
    const std::string start = client.read(2);
    std::size_t size = static_cast<unsigned char>(start[1]);
    if (size == 126) {
        const std::string extended = client.read(2);
        size = static_cast<std::size_t>(static_cast<unsigned char>(extended[0])) << 8U |
               static_cast<unsigned char>(extended[1]);
    }
    return {static_cast<unsigned char>(start[0]), client.read(size)};
}

} // namespace vireotest
