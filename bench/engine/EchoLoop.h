#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include <microhttpd.h>
#include <poll.h>

namespace bench {

/// Echoes WebSocket messages of upgraded sockets: one thread, one poll.
class EchoLoop {
public:
    EchoLoop();
    ~EchoLoop();
    EchoLoop(const EchoLoop&) = delete;
    EchoLoop& operator=(const EchoLoop&) = delete;

    /// Any thread.
    void add(MHD_socket socket, MHD_UpgradeResponseHandle* handle);

    /// Closes every connection. To be called while the daemon runs; what is added afterwards is closed at once.
    void stop();

private:
    struct Connection {
        MHD_socket socket;
        MHD_UpgradeResponseHandle* handle;
        std::vector<std::uint8_t> in;  ///< received and not complete
        std::vector<std::uint8_t> out; ///< echoed and not sent
    };

    void run();
    void takeNew();
    /// @return false when the connection is to be closed.
    bool receive(Connection& connection);
    /// Echoes the whole frames at the start of `data`. @return the bytes of them, or -1.
    static std::int64_t echoFrames(Connection& connection, std::uint8_t* data, std::size_t size);
    static bool send(Connection& connection, const std::uint8_t* data, std::size_t size);
    static bool sendRest(Connection& connection);
    void wake() const;

    std::mutex mutex_;
    std::vector<Connection> new_; // guarded by mutex_
    bool stopping_ = false;       // guarded by mutex_
    const int wakeUp_;
    // The loop's own.
    std::vector<Connection> connections_;
    std::vector<pollfd> polled_; // the wake-up, then one for each connection
    std::vector<std::uint8_t> scratch_;
    std::thread thread_; // last: it uses the others
};

} // namespace bench
