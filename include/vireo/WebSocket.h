// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace ql::impl {
class WebSocketState;
} // namespace ql::impl

namespace ql::http {

/// One upgraded connection: the bytes received and not yet parsed, the frames not yet sent, and the message that is
/// being put together. Its input and output never block, whatever mode the socket is in.
///
/// The server makes each connection after the opening handshake and gives it to HttpServerImpl::acceptWebSocket(). An
/// application that handles messages makes a connection of its own class out of it there and hands that to a pool:
///
///     class EchoSocket : public ql::http::WebSocket {
///     public:
///         explicit EchoSocket(WebSocket&& accepted) : WebSocket(std::move(accepted)) {}
///         void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
///             writeMessage(message.data(), message.size(), isBinary);
///         }
///     };
///
///     void MyServer::acceptWebSocket(ql::http::WebSocket* accepted) {
///         const std::unique_ptr<ql::http::WebSocket> source(accepted);
///         std::unique_ptr<ql::http::WebSocket> socket = std::make_unique<EchoSocket>(std::move(*source));
///         pool_.addWebSocket(socket); // a stopped pool closes it and leaves it here, to be destroyed
///     }
///
/// Threads: a connection has one holder at a time, the pool (WebSocketThread) or whoever took it out of its
/// std::unique_ptr. Only writeMessage() and hasWritePending() may be called by others, and only while they can be sure
/// that the object exists: the pool destroys a connection when it ends. A list of connections for broadcasts therefore
/// has a lock of the application, under which the derived class's destructor takes itself out and writers write. Do
/// not call the pool with that lock held.
///
/// What the framing leaves to the application: there is no limit on the size of a message, pings and pongs arrive as
/// text and binary messages, and a peer's close frame ends the connection.
class VIREO_API WebSocket {
public:
    /// Takes over an upgraded socket: switches its send delay (Nagle's algorithm) off.
    /// @param socket the system's handle; all ones for none.
    /// @param upgradeHandle the HTTP engine's handle of the connection (`MHD_UpgradeResponseHandle*`), or null.
    WebSocket(std::uint64_t socket, void* upgradeHandle);

    /// Takes over the socket, the handle and the queues of `accepted` and leaves that one closed. For a connection
    /// that no thread is serving.
    /// @throws std::bad_alloc with `accepted` as it was.
    WebSocket(WebSocket&& accepted); // NOLINT(performance-noexcept-move-constructor): it allocates

    /// Frees the queues. Does not close the connection: whoever destroys an open one calls markForDeletion() first.
    ///
    /// Thread: the pool destroys a connection on the thread that saw its end (a pool worker or the poll thread), else
    /// on the thread that calls WebSocketThread::closeAll() or destroys the pool; no lock of the library is held.
    virtual ~WebSocket();

    /// Handles one message.
    ///
    /// Thread: the pool worker that serves the connection, with no lock held.
    /// How often: once for each complete message, in the order in which the peer sent them. Never two calls at once
    /// for one connection; calls for different connections overlap.
    /// Arguments: `message` lives as long as the call and is emptied afterwards. It may be changed and moved from; left
    /// alone, its storage serves the next message.
    /// May call: everything here. writeMessage() on this connection sends at once what the socket takes;
    /// markForDeletion() ends the connection when the call has returned.
    /// If it throws: the connection is closed and destroyed and a line is logged (type 5); nothing else is affected.
    ///
    /// The body here ignores the message and answers with a fixed one: "response", 32751 times, as binary.
    virtual void onMessageReceived(std::vector<unsigned char>& message, bool isBinary);

    WebSocket(const WebSocket&) = delete;
    WebSocket& operator=(const WebSocket&) = delete;
    WebSocket& operator=(WebSocket&&) = delete;

    /// Closes the connection: asks the HTTP engine to end it and forgets the socket. Does nothing more on a closed one.
    /// For the holder, and within onMessageReceived(). Never after the server has stopped: the engine has then freed
    /// what the handle points to (see WebSocketThread for the right order).
    void markForDeletion();

    /// Notes that the socket may have something to read. `false` changes nothing: only readDataIfAvailable() clears
    /// the note, when the socket has no more.
    void setReadEnabled(bool enabled);

    /// Receives and delivers at most one frame; does nothing while hasReadPending() is false.
    ///
    /// Keeps hasReadPending() true when it may have more to do at once, and clears it when the socket would block.
    /// @return false when the connection is to be closed: a receive failed, a frame cannot be accepted,
    /// onMessageReceived() closed it, or the peer has closed and every whole frame it sent is delivered.
    /// @throws what onMessageReceived() throws, or std::bad_alloc; the connection is then to be closed.
    bool readDataIfAvailable();

    /// Sends what is queued, as far as the socket takes it.
    /// @return false when the connection is to be closed. A socket that would block is no reason.
    bool sendDataIfAvailable() QL_EXCLUDES(mutex_);

    /// Queues one message, copied, and sends at once what the socket takes if this thread is serving the connection.
    /// For the rest, and for what other threads write, the pool is woken, which sends. Messages of several threads
    /// never mix. Any thread.
    ///
    /// Once the server has told the peer to go (HttpServer::drain()), nothing more is queued.
    ///
    /// Nothing bounds the queue: a peer that does not read makes it grow with every message.
    /// @param data may be null when `size` is 0.
    /// @throws std::bad_alloc when the queue cannot grow; nothing of the message is queued then.
    void writeMessage(const void* data, std::uint64_t size, bool isBinary) QL_EXCLUDES(mutex_);

    /// Marks the calling thread as the one that serves the connection.
    void assignCurrentThread() QL_EXCLUDES(mutex_);

    /// Takes that mark away.
    void clearCurrentThread() QL_EXCLUDES(mutex_);

    /// The system's socket; all ones when closed. For the holder.
    std::uint64_t getSocket() const { return socket_; }

    /// Whether something waits to be sent. Any thread; the answer is a snapshot.
    bool hasWritePending() const;

    /// Whether the socket may have something to read. Any thread; the answer is a snapshot.
    bool hasReadPending() const;

    /// The Sec-WebSocket-Accept value that answers a Sec-WebSocket-Key (RFC 6455 section 4.2.2). Any thread.
    /// @return 28 characters, or an empty text unless `key` has exactly 24. Null is allowed.
    static std::string ComputeSecret(const char* key);

private:
    friend class impl::WebSocketState;

    enum class ReadFrameStatus {
        Failed = 0,        ///< a frame that is not accepted: the connection must go
        FrameComplete = 1, ///< one frame was consumed; with FIN its message was delivered
        NeedMoreData = 2,  ///< no whole frame is buffered; nothing was consumed
    };

    /// Consumes at most one frame of the read queue.
    ReadFrameStatus tryToReadFrame();
    /// Moves payload out of the read queue into `message`, from `offset` to its end, and unmasks it. At least as many
    /// bytes must be buffered.
    void readRawData(std::vector<unsigned char>& message, const unsigned char* const maskKey, std::uint64_t offset);
    /// Discards `count` bytes of the read queue, which must hold them.
    void skipBytes(std::uint64_t count);
    /// Copies up to `count` bytes of the read queue without consuming them.
    void readNoSeek(unsigned char* const out, std::uint64_t count) const;

    /// Parses a frame header.
    /// @param data the frame; no more than its first 14 bytes are looked at.
    /// @param size bytes of the frame that are there, also those behind the first 14.
    /// @param firstFragment true when no message is in progress.
    /// @return true when the whole frame is there, or when it is `invalid`; false when it is incomplete.
    static bool GetLength(const unsigned char* const data, std::uint64_t size, bool firstFragment,
                          unsigned char* const maskKey, std::uint64_t& payloadLength, std::uint64_t& headerLength,
                          bool& invalid, bool& isBinary, bool& fin);
    /// Encodes a frame header into `out`, which has room for 10 bytes.
    static void WriteHeader(unsigned char* out, std::uint64_t payloadLength, bool isBinary, bool isFirstFrame,
                            bool isFinal, std::uint64_t& headerLength);

    /// sendDataIfAvailable() under the lock.
    bool sendQueued() QL_REQUIRES(mutex_);
    /// Appends bytes to the write queue.
    void writeRawData(const void* data, std::uint64_t size) QL_REQUIRES(mutex_);
    /// Takes sent bytes off the write queue.
    void removeWrittenBytes(std::uint64_t count) QL_REQUIRES(mutex_);
    /// Appends the frames of one message to the write queue: all of them, or none when it throws.
    void appendMessage(const unsigned char* data, std::uint64_t size, bool isBinary) QL_REQUIRES(mutex_);
    void appendFrame(const unsigned char* data, std::uint64_t size, bool isBinary, bool isFirstFrame, bool isFinal)
        QL_REQUIRES(mutex_);

    // Without another note: only touched by the holder of the connection.

    /// Bytes of every block of both queues, 1024. An end equal to it means that the last block is full, or that there
    /// is none, so that the next byte begins a new one.
    const std::uint64_t blockSize_;
    /// Bytes of the first write block already sent.
    std::uint64_t writeOffset_ QL_GUARDED_BY(mutex_) = 0;
    /// Fill end of the last write block.
    std::uint64_t writeEnd_ QL_GUARDED_BY(mutex_) = blockSize_;
    /// Bytes of the first read block already consumed.
    std::uint64_t readOffset_ = 0;
    /// Fill end of the last read block.
    std::uint64_t readEnd_ = blockSize_;
    /// Null once closed.
    void* upgradeHandle_;
    qlMutex mutex_;
    /// Unmasked payload of the message in progress. Its storage is kept between messages.
    std::vector<unsigned char> message_;
    /// qlThread::CurrentThreadId() of the thread that serves the connection; empty when none does.
    std::string currentThread_ QL_GUARDED_BY(mutex_);
    std::list<std::vector<unsigned char>> writeBlocks_ QL_GUARDED_BY(mutex_);
    std::list<std::vector<unsigned char>> readBlocks_;
    /// All ones once closed.
    std::uint64_t socket_;
    /// Type of the message in progress.
    bool isBinary_ = false;
    /// Written by the holder only; atomic because hasReadPending() answers anyone. Nothing else is read on its word.
    std::atomic<bool> readEnabled_{false};
    /// All that is not declared above. Constant.
    const std::unique_ptr<impl::WebSocketState> state_;
};

} // namespace ql::http
