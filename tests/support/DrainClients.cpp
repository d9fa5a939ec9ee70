#include "support/DrainClients.h"

#include "integration/EchoSocket.h"
#include "support/RawClient.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace vireotest {

namespace {

using Clock = std::chrono::steady_clock;

/// A connection that has been idle for longer may be closed at any time; so may one that this machine has kept from
/// sending its next request for so long. Who has just connected is waited for for longer.
///@{
constexpr std::chrono::milliseconds MostIdle{50};
constexpr std::chrono::milliseconds MostSilent{500};
///@}

/// What is sent of a request at first: from there on the server knows of it.
constexpr std::size_t BeginBytes = 1000;

/// The server has asked to close the connection.
class Closing : public std::exception {};

void expect(bool isRight, const char* what) {
    if (!isRight) {
        throw std::runtime_error(what);
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
        add("kept", true, echoOf(small));
        add("single", false, echoOf(small));
    }
    add("upload", true, echoOf(large));
    add("single upload", false, echoOf(large));
    for (int i = 0; i < 2; ++i) {
        add("stream", true, stream());
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

DrainClients::Exchange DrainClients::echoOf(const std::string& body) {
    return {post("/echo", body), [body](RawClient& client) {
                const RawResponse response = client.readResponse();
                expect(response.status == 200, "another status");
                expect(response.body == body, "another body");
                if (response.value("Connection") == "close") {
                    throw Closing();
                }
            }};
}

DrainClients::Exchange DrainClients::stream() {
    return {get("/stream"), [](RawClient& client) {
                const RawResponse response = client.readResponse();
                expect(response.status == 200, "another status");
                expect(response.body.size() % 5 == 0, "half an event");
                if (response.value("Connection") == "close") {
                    throw Closing();
                }
            }};
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
    Clock::time_point idleSince = Clock::now();
    try {
        client.emplace(port_, host_);
    } catch (const std::exception&) {
        return false;
    }
    const std::string_view request = exchange.request;
    std::chrono::milliseconds mostIdle = MostSilent;
    std::optional<Clock::time_point> begun;
    try {
        do {
            begun.reset();
            client->send(request.substr(0, BeginBytes));
            begun = Clock::now();
            client->send(request.substr(std::min(BeginBytes, request.size())));
            exchange.receive(*client);
            ++answered_;
            idleSince = Clock::now();
            mostIdle = MostIdle;
        } while (keepsConnection);
    } catch (const Closing&) {
        ++answered_;
    } catch (const std::exception& error) {
        if (begun.value_or(Clock::now()) - idleSince <= mostIdle) {
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
