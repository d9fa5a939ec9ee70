#pragma once

#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/WebSocketSession.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireotest {

/// What sessions were called for, in the order in which it happened.
class SessionLog {
public:
    void add(std::string line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
        changed_.notify_all();
    }

    std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

    /// Waits for the first `count`. Throws when they don't come.
    std::vector<std::string> wait(std::size_t count) const {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_until(lock, soon(), [&] { return lines_.size() >= count; })) {
            throw std::runtime_error("too little happened to the sessions");
        }
        return lines_;
    }

    std::size_t count(const std::string& line) const {
        const std::vector<std::string> all = lines();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
};

/// Sends every text back.
class LoggingSession : public ql::http::WebSocketSession {
public:
    using OnText = std::function<void(LoggingSession&, std::string_view)>;

    /// @param onText in place of the echo, if any.
    explicit LoggingSession(SessionLog& log, OnText onText = {}) : log_(log), onText_(std::move(onText)) {}
    ~LoggingSession() override { log_.add("gone"); }

    void onOpen() override { log_.add("open"); }
    void onText(std::string_view text) override {
        if (onText_) {
            onText_(*this, text);
        } else {
            (void)sendText(text);
        }
    }
    void onClose(std::uint16_t code, std::string_view reason, bool isClean) override {
        log_.add("close " + std::to_string(code) + " '" + std::string(reason) + "'" + (isClean ? "" : " unclean"));
    }

private:
    SessionLog& log_;
    const OnText onText_;
};

/// Decides as a test wants it.
class TestAcceptor : public ql::http::WebSocketAcceptor {
public:
    using Opening = ql::http::WebSocketOpening;
    using Answer = ql::http::WebSocketAnswer;

    /// @param decide accepts with a LoggingSession when it is empty.
    explicit TestAcceptor(SessionLog& log, std::function<Answer(const Opening&)> decide = {},
                          std::function<bool(const Opening&)> allowOrigin = {})
        : log_(log), decide_(std::move(decide)), allowOrigin_(std::move(allowOrigin)) {}

    Answer decide(const Opening& opening) override {
        ++decisions;
        return decide_ ? decide_(opening) : Answer::Accept(std::make_unique<LoggingSession>(log_));
    }

    bool isOriginAllowed(const Opening& opening) override {
        return allowOrigin_ ? allowOrigin_(opening) : WebSocketAcceptor::isOriginAllowed(opening);
    }

    std::atomic<int> decisions{0};

private:
    SessionLog& log_;
    const std::function<Answer(const Opening&)> decide_;
    const std::function<bool(const Opening&)> allowOrigin_;
};

/// What a browser sends, header by header.
struct Handshake {
    std::string method = "GET";
    std::string target = "/chat";
    std::string version = "HTTP/1.1";
    std::string host = "Host: example.org\r\n";
    std::string upgrade = "Upgrade: websocket\r\n";
    std::string connection = "Connection: keep-alive, Upgrade\r\n";
    std::string protocolVersion = "Sec-WebSocket-Version: 13\r\n";
    std::string key = "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";
    std::string others;

    std::string text() const {
        return method + " " + target + " " + version + "\r\n" + host + upgrade + connection + protocolVersion + key +
               others + "\r\n";
    }
};

inline Handshake handshakeWith(std::string others) {
    Handshake handshake;
    handshake.others = std::move(others);
    return handshake;
}

/// Opens a WebSocket as browsers do. Throws when the server refuses it.
inline RawResponse open(RawClient& client, const Handshake& handshake = {}) {
    client.send(handshake.text());
    RawResponse response = client.readHead();
    if (response.status != 101) {
        throw std::runtime_error("the handshake is refused");
    }
    return response;
}

/// A close frame of a client.
inline std::string closeFrame(std::uint16_t code) {
    const std::string payload = {static_cast<char>(code >> 8U), static_cast<char>(code & 0xFFU)};
    return clientFrame(payload, 8);
}

/// Receives a close frame: its code.
inline std::uint16_t readClose(RawClient& client) {
    const auto [first, payload] = readFrame(client);
    if (first != 0x88 || payload.size() < 2) {
        throw std::runtime_error("this is no close frame with a code");
    }
    return static_cast<std::uint16_t>(static_cast<unsigned char>(payload[0]) << 8U |
                                      static_cast<unsigned char>(payload[1]));
}

} // namespace vireotest
