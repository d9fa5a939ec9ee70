#pragma once

#include <vireo/app/RoomBus.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

struct RedisOptions {
    /// Where Redis is: "127.0.0.1:6379", by address and not by name, which may take long to find; or a Unix socket,
    /// "/run/redis/redis.sock".
    std::string place;
    /// What the processes of this service share and no others: the databases of Redis do not part channels.
    std::string channel;
    /// Empty: none. Whoever reaches Redis writes to the clients of every process.
    std::string password{};
    /// How long a connection and an answer may take.
    std::chrono::milliseconds patience{2000};
    /// What may wait to be sent; what comes on top is refused.
    std::size_t mostBytes = 4194304;
};

/// Carries the rooms of several processes by a channel of Redis, with a connection that publishes and one that listens,
/// each on a thread of its own. One that is lost is made again, after pauses of 100 ms at first and 5 s at last.
///
/// While there is none to publish, messages are refused, and nothing is kept for later. What was under way when it
/// broke is not sent again, for it may have arrived. The log tells how many of either.
class RedisBus final : public vireo::RoomBus {
public:
    /// Throws std::invalid_argument without a place or a channel.
    explicit RedisBus(RedisOptions options);
    ~RedisBus() override;

    /// Waits for the connections, but not for longer than one may take: a process serves without Redis, too.
    void start(Receiver receiver) override;
    /// Publishes what waits, if Redis takes it.
    void stop() noexcept override;
    bool publish(std::string_view frame) noexcept override;

private:
    class Connection;

    /// One of the two connections, as the other threads see it.
    struct Way {
        const char* name;
        bool isUp = false;
        /// Whether the log has it that there is none.
        bool isLossTold = false;
        /// While it is up.
        int socket = -1;
    };

    void run(Way& way, void (RedisBus::*serve)(Connection&));
    void publishAll(Connection& connection);
    void listen(Connection& connection);
    void setUp(Way& way, const Connection& connection);
    /// @return whether it was up.
    bool setDown(Way& way, const std::string& reason);
    bool isStopping();

    const RedisOptions options_;
    Receiver receiver_;

    std::mutex mutex_;
    /// Of everything below.
    std::condition_variable changed_;
    bool isStopping_ = false;
    Way publishing_{"publishing"};
    Way listening_{"listening"};
    std::deque<std::string> queue_;
    std::size_t queuedBytes_ = 0;
    /// Messages that were sent and have no answer yet.
    std::size_t unanswered_ = 0;
    /// Messages that were refused since the log has told of some.
    std::uint64_t refused_ = 0;

    std::thread publisher_;
    std::thread listener_;
};
