#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vireotest {

using Deadline = std::chrono::steady_clock::time_point;

/// How long a test waits for anything that must happen; long enough for a sanitizer on a busy machine.
inline constexpr std::chrono::seconds Patience{30};

inline Deadline soon() {
    return std::chrono::steady_clock::now() + Patience;
}

/// One TCP connection of a test's client. The two halves of this file are the only test code that knows the system's
/// sockets. For one thread.
class RawSocket {
public:
    enum class Status {
        Done,     ///< some bytes went through
        End,      ///< the peer has finished sending
        Broken,   ///< the connection was reset or is closed
        TimedOut, ///< nothing happened before the deadline
    };

    struct Result {
        Status status;
        std::size_t bytes;
    };

    RawSocket() = default;
    ~RawSocket();
    RawSocket(RawSocket&& other) noexcept;
    RawSocket& operator=(RawSocket&& other) noexcept;

    /// Connects; the socket stays closed when the peer refuses.
    /// @param host an IPv4 or IPv6 address, or the path of a Unix socket, which has a slash.
    /// @param receiveBufferBytes size of the system's receive buffer; 0 leaves it to the system.
    static RawSocket Connect(const std::string& host, std::uint16_t port, int receiveBufferBytes);

    bool isOpen() const { return handle_ != Closed; }

    /// Sends as much as goes without waiting for more room.
    Result send(const char* data, std::size_t size, Deadline deadline);
    /// Receives what is there, at least one byte.
    Result receive(char* data, std::size_t size, Deadline deadline);

    /// Tells the peer that nothing more will be sent.
    void endSending();
    /// Closes and makes the system send a reset.
    void reset();
    /// Closes in the orderly way: an end, or a reset where received bytes were not read.
    void close();

private:
    static constexpr std::uintptr_t Closed = ~std::uintptr_t{0};

    explicit RawSocket(std::uintptr_t handle) : handle_(handle) {}

    std::uintptr_t handle_ = Closed;
};

/// Lets this process have so many descriptors. @return false when the system refuses.
bool allowDescriptors(std::size_t count);

/// Whether this machine has the address ::1.
bool hasIPv6();

/// True when nobody listens on the port of 127.0.0.1.
bool isPortFree(std::uint16_t port);

/// True where the engine takes an orderly end of a client's sending for a failure: WSAPoll() reports a hang-up then.
bool isEndOfSendingAHangUp();

unsigned long currentProcessId();

/// The memory that this process holds now, in bytes.
std::uint64_t residentMemoryBytes();

/// How many descriptors this process has open; of Windows's handles, those of any kind.
std::size_t openHandles();

/// Makes SIGPIPE do what it does by default, which ends the process. Nothing where there are no signals.
void letBrokenPipesKill();

} // namespace vireotest
