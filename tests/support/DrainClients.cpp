#include "support/DrainClients.h"

#include "integration/EchoSocket.h"
#include "support/RawClient.h"

#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

namespace vireotest {

namespace {

using Clock = std::chrono::steady_clock;

/// A connection that has been idle for longer may be closed at any time; so may one that this machine has kept from
/// sending its next request for so long.
constexpr std::chrono::milliseconds MostIdle{50};

/// The server has asked to close the connection.
class Closing : public std::exception {};

void expect(bool isRight, const char* what) {
    if (!isRight) {
        throw std::runtime_error(what);
    }
}

void exchangeEcho(RawClient& client, const std::string& body) {
    const RawResponse response = client.exchange(post("/echo", body));
    expect(response.status == 200, "another status");
    expect(response.body == body, "another body");
    if (response.value("Connection") == "close") {
        throw Closing();
    }
}

void exchangeStream(RawClient& client) {
    const RawResponse response = client.exchange(get("/stream"));
    expect(response.status == 200, "another status");
    expect(response.body.size() % 5 == 0, "half an event");
    if (response.value("Connection") == "close") {
        throw Closing();
    }
}

void exchangeMessage(RawClient& client) {
    constexpr unsigned char CloseFrame = 0x88;
    client.trySend(textFrame("message"));
    const auto [start, payload] = readFrame(client);
    if (start == CloseFrame) {
        expect(payload == "\x03\xE9", "another reason");
        throw Closing();
    }
    expect(payload == "message", "another message");
}

} // namespace

DrainClients::DrainClients(std::uint16_t port, const std::string& host) : port_(port), host_(host) {
    const std::string small = "small";
    const std::string large(300000, 'l');
    for (int i = 0; i < 3; ++i) {
        add("kept", true, [small](RawClient& client) { exchangeEcho(client, small); });
        add("single", false, [small](RawClient& client) { exchangeEcho(client, small); });
    }
    add("upload", true, [large](RawClient& client) { exchangeEcho(client, large); });
    add("single upload", false, [large](RawClient& client) { exchangeEcho(client, large); });
    for (int i = 0; i < 2; ++i) {
        add("stream", true, &exchangeStream);
    }
    for (int i = 0; i < 2; ++i) {
        threads_.emplace_back([this, client = openWebSocket(port_, host_)]() mutable {
            try {
                while (true) {
                    exchangeMessage(client);
                    ++answered_;
                }
            } catch (const Closing&) {
                return;
            } catch (const std::exception& error) {
                complain("WebSocket", error.what());
            }
        });
    }
}

DrainClients::~DrainClients() {
    join();
}

std::vector<std::string> DrainClients::losses() {
    join();
    return std::exchange(losses_, {});
}

void DrainClients::add(const char* kind, bool keepsConnection, const Exchange& exchange) {
    threads_.emplace_back([=, this] { keepSending(kind, keepsConnection, exchange); });
}

void DrainClients::keepSending(const char* kind, bool keepsConnection, const Exchange& exchange) {
    while (sendOnOne(kind, keepsConnection, exchange)) {
    }
}

bool DrainClients::sendOnOne(const char* kind, bool keepsConnection, const Exchange& exchange) {
    std::optional<RawClient> client;
    try {
        client.emplace(port_, host_);
    } catch (const std::exception&) {
        return false;
    }
    std::optional<Clock::time_point> lastAnswer;
    bool wasIdle = false;
    try {
        do {
            wasIdle = lastAnswer && Clock::now() - *lastAnswer > MostIdle;
            exchange(*client);
            ++answered_;
            lastAnswer = Clock::now();
        } while (keepsConnection);
    } catch (const Closing&) {
        ++answered_;
    } catch (const std::exception& error) {
        if (!wasIdle) {
            complain(kind, error.what());
        }
    }
    return true;
}

void DrainClients::complain(const char* kind, const std::string& what) {
    const std::lock_guard lock(mutex_);
    losses_.push_back(std::string(kind) + ": " + what);
}

void DrainClients::join() {
    for (std::thread& thread : threads_) {
        thread.join();
    }
    threads_.clear();
}

} // namespace vireotest
