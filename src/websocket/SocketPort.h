// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

/// What WebSockets ask of the system's sockets. One half per platform; each difference between poll() and WSAPoll() is
/// dealt with there and nowhere else. Every function may be called from any thread.
namespace ql::impl {

/// INVALID_SOCKET of Windows; the -1 of other systems, widened.
constexpr std::uint64_t InvalidSocket = ~std::uint64_t{0};

/// One stretch of the memory that a call receives into or sends from.
struct SocketBuffer {
    unsigned char* data;
    std::uint64_t size;
};

/// Buffers serve both directions; what is sent is not written to.
inline SocketBuffer bufferToSend(std::span<const unsigned char> bytes) {
    return {const_cast<unsigned char*>(bytes.data()), bytes.size()};
}

/// In the order in which they are filled or sent. At least one, and no more than MostSocketBuffers.
using SocketBuffers = std::span<const SocketBuffer>;
constexpr std::size_t MostSocketBuffers = 64;

/// The system calls below the port, one attempt each, results and error code as the system gives them. Tests put a
/// table of their own in front, to make calls fail at will.
struct SocketFunctions {
    std::int64_t (*receive)(std::uint64_t socket, SocketBuffers buffers);
    std::int64_t (*send)(std::uint64_t socket, SocketBuffers buffers);
    /// `entries` is the system's own array (pollfd, WSAPOLLFD).
    int (*poll)(void* entries, std::size_t count, int timeoutMs);
};

/// The table of the real system calls.
extern const SocketFunctions systemSocketFunctions;

/// The table in use. A table put here must stay until no thread can be inside one of its functions.
extern std::atomic<const SocketFunctions*> socketFunctions;

/// Readies a socket that was just taken over: small messages leave without delay, and where a single call cannot be
/// told not to block, the socket is. Failures are ignored: a socket that has no such switch needs none.
void prepareSocket(std::uint64_t socket);

/// Receives what is there, as far as the buffers have room, in one system call. Never blocks; interrupted calls are
/// repeated.
/// @return the count, 0 when the peer has closed, negative on failure (lastSocketError()).
std::int64_t receiveFromSocket(std::uint64_t socket, SocketBuffers buffers);

/// Sends as much of the buffers as the socket takes, in one system call. Never blocks and raises no signal;
/// interrupted calls are repeated.
/// @return the count, negative on failure (lastSocketError()).
std::int64_t sendToSocket(std::uint64_t socket, SocketBuffers buffers);

/// The error of the calling thread's last failed call.
int lastSocketError();

/// True when `error` says that the call would have had to wait.
bool isWouldBlock(int error);

/// Waits until something happens on one of the sockets or the time is over.
/// @param entries the system's own array. Afterwards those that are no socket are marked so.
/// @return how many entries have news; 0 also when the wait was interrupted; negative on failure (lastSocketError()).
int pollSockets(void* entries, std::size_t count, int timeoutMs);

/// A signal that other threads raise to end a PollSet's wait.
class WakeSignal {
public:
    WakeSignal() = default;
    ~WakeSignal();
    WakeSignal(const WakeSignal&) = delete;
    WakeSignal& operator=(const WakeSignal&) = delete;

    /// Opens it, unless it is open. When the system has nothing to give for it, raise() does nothing and no wait ends
    /// early.
    void open();
    /// Any thread, once it knows that open() has returned.
    void raise() const;
    /// Takes back what was raised.
    void lower() const;
    /// Readable while the signal is raised; InvalidSocket when it is not open.
    std::uint64_t getSocket() const { return readEnd_; }

private:
    std::uint64_t readEnd_ = InvalidSocket;
    std::uint64_t writeEnd_ = InvalidSocket;
};

} // namespace ql::impl
