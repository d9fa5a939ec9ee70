#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

/// What WebSockets ask of the system's sockets. One half per platform; each difference between poll() and WSAPoll() is
/// dealt with there and nowhere else. Every function may be called from any thread.
namespace ql::impl {

/// INVALID_SOCKET of Windows; the -1 of other systems, widened.
constexpr std::uint64_t InvalidSocket = ~std::uint64_t{0};

/// The system calls below the port, one attempt each, results and error code as the system gives them. Tests put a
/// table of their own in front, to make calls fail at will.
struct SocketFunctions {
    std::int64_t (*receive)(std::uint64_t socket, void* data, std::uint64_t size);
    std::int64_t (*send)(std::uint64_t socket, const void* data, std::uint64_t size);
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

/// Receives what is there, at most `size` bytes. Never blocks; interrupted calls are repeated.
/// @return the count, 0 when the peer has closed, negative on failure (lastSocketError()).
std::int64_t receiveFromSocket(std::uint64_t socket, void* data, std::uint64_t size);

/// Sends as much of `data` as the socket takes. Never blocks and raises no signal; interrupted calls are repeated.
/// @return the count, negative on failure (lastSocketError()).
std::int64_t sendToSocket(std::uint64_t socket, const void* data, std::uint64_t size);

/// The error of the calling thread's last failed call.
int lastSocketError();

/// True when `error` says that the call would have had to wait.
bool isWouldBlock(int error);

/// What was seen on one socket.
struct SocketEvents {
    bool broken;   ///< error or hang-up
    bool readable; ///< something to read, or the peer has closed
    bool writable; ///< room to write; only where it was asked for
};

/// The sockets of one poll call. For one thread.
class PollSet {
public:
    PollSet();
    ~PollSet();
    PollSet(const PollSet&) = delete;
    PollSet& operator=(const PollSet&) = delete;

    /// Makes room for `count` sockets. @throws std::bad_alloc
    void reserve(std::size_t count);
    /// Empties the set; the room stays.
    void clear();
    /// Adds a socket to watch for reading, and for writing if wanted. reserve() must have made room for it; then it
    /// doesn't throw.
    void add(std::uint64_t socket, bool forWriting);
    /// Waits until something happens on a socket or the time is over.
    /// @return how many sockets have news, those that are no socket at all among them; 0 when the time is over or the
    /// wait was interrupted; negative on failure (lastSocketError()).
    int wait(int timeoutMs);
    /// What the last wait() saw on the socket added as number `index`. Of something that is no socket: nothing.
    SocketEvents getEvents(std::size_t index) const;

private:
    struct Native;
    std::unique_ptr<Native> native_;
};

} // namespace ql::impl
