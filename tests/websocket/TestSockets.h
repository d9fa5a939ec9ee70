#pragma once

#include "websocket/Frames.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Real sockets for the tests, all on 127.0.0.1.
namespace wstest {

/// Two connected sockets, closed at the end unless they were released.
class SocketPair {
public:
    SocketPair();
    ~SocketPair();
    SocketPair(SocketPair&& other) noexcept;
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;
    SocketPair& operator=(SocketPair&&) = delete;

    /// The end that a WebSocket takes. Blocking, with the send delay on.
    std::uint64_t server = ~std::uint64_t{0};
    /// The test's end. Blocking; gives up after 60 s.
    std::uint64_t client = ~std::uint64_t{0};

    void closeServer();
    void closeClient();
    /// Ends the connection with a reset.
    void resetClient();
};

/// A client of a server on 127.0.0.1, like SocketPair::client. The caller closes it.
std::uint64_t connectTo(std::uint16_t port);

/// Sends all of it. @return false when the connection is gone.
bool sendAll(std::uint64_t socket, const Bytes& bytes);
/// Receives up to `size` bytes, fewer only when the peer has closed or reset.
Bytes receiveExactly(std::uint64_t socket, std::size_t size);
/// Receives one server frame, header and payload.
Bytes receiveFrame(std::uint64_t socket);
/// True when the peer has closed or reset and everything was read.
bool atEnd(std::uint64_t socket);
/// Says that no more will be sent; receiving goes on.
void shutdownSending(std::uint64_t socket);
void closeSocket(std::uint64_t socket);
/// Makes the socket's buffers as small as the system allows.
void shrinkBuffers(std::uint64_t socket);
bool hasSendDelay(std::uint64_t socket);

/// True where poll() reports a hang-up when the peer has ended its sending and everything was read; elsewhere the
/// socket is readable then.
bool isEndOfSendingAHangUp();

/// Raises the number of sockets the process may have, where there is a limit. @return false when it stays lower.
bool allowSockets(std::size_t count);

// The system's error codes and poll arrays, for functions that stand in for system calls.

enum class SocketError { WouldBlock, Interrupted, ConnectionReset, InvalidArgument };
void setLastError(SocketError error);
std::string errorText(SocketError error);

struct PollEntry {
    std::uint64_t socket = 0;
    int events = 0;
};
std::vector<PollEntry> readPollEntries(const void* entries, std::size_t count);
enum class PollEvent { Error, HangUp, NotASocket };
void setPollEvent(void* entries, std::size_t index, PollEvent event);
/// The masks that are expected in PollEntry::events.
int readMask();
int readAndWriteMask();

} // namespace wstest
