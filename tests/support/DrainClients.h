#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vireotest {

class RawClient;

/// Clients of every kind that keep a server busy until it lets nobody in any more, and complain of each request that is
/// not answered: some keep their connections, some open one for each request, some upload, some read streams, and some
/// hold a WebSocket. The server echoes bodies, and at "/stream" sends pieces that read "event".
class DrainClients {
public:
    /// Starts them.
    /// @param host as for RawSocket::Connect().
    explicit DrainClients(std::uint16_t port, const std::string& host = "127.0.0.1");
    ~DrainClients();
    DrainClients(const DrainClients&) = delete;
    DrainClients& operator=(const DrainClients&) = delete;

    /// How many requests were answered so far.
    std::uint64_t answered() const { return answered_; }

    /// What went wrong, once all clients have found that nobody listens.
    std::vector<std::string> losses();

private:
    struct Exchange {
        std::string request;
        /// Receives the answer, and throws where it is another.
        std::function<void(RawClient& client)> receive;
    };

    static Exchange echoOf(const std::string& body);
    static Exchange stream();

    void add(const char* kind, bool keepsConnection, const Exchange& exchange);
    void keepSending(const char* kind, bool keepsConnection, const Exchange& exchange);
    bool sendOnOne(const char* kind, bool keepsConnection, const Exchange& exchange);
    void complain(const char* kind, const std::string& what);
    void join();

    const std::uint16_t port_;
    const std::string host_;
    std::atomic<std::uint64_t> answered_{0};
    std::mutex mutex_;
    std::vector<std::string> losses_;
    std::vector<std::thread> threads_;
};

} // namespace vireotest
