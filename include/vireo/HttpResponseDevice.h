// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/Reserve.h"
#include "vireo/support/qlIoDevice.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlTimer.h"
#include "vireo/support/qlWaitCondition.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace ql {

class HttpBaseRequest;

namespace impl {
struct WholeBody;
}

/// The body of one response as a stream: the request's worker thread writes it, a daemon thread sends it.
///
/// When status, headers and cookies are final, releaseResponse() lets the library queue the response. A body that was
/// ended before the release and is below 512 MiB goes out as one buffer; every other is streamed. releaseBuffer() and
/// releaseFile() give a whole body at once.
///
/// Memory: written bytes gather in chunks of 64 KiB, and full chunks are handed over to the daemon. Once more than
/// 256 KiB are handed over and not taken, the next hand-over waits. So release before you write more than 256 KiB:
/// nothing is taken from an unreleased response, and the writer would wait for ever. The log names it then.
///
/// Shutdown: when the connection is lost, the server stops, or an exception makes the library answer 500 (the reason is
/// "InternalError" then), a waiting writer returns, the device has an error ("lost connection : " and the reason), and
/// every later write is refused. A response that ends well before its writer does (a HEAD request, or more bytes than
/// the content length) does not release the writer: the application's scheduler does, which sees the request become
/// scheduler-done and calls setConnectionLost() under the lock.
class VIREO_API HttpResponseDevice : public qlIoDevice {
public:
    /// How far the response is, as dispatch sees it.
    enum class ResponseState : std::uint32_t {
        NotReady = 0,  ///< not released yet
        Ready = 1,     ///< released: status, headers and cookies are final
        Streaming = 2, ///< queued as a stream
        Buffered = 3,  ///< queued as one buffer
    };

    /// @param request the owner; outlives the device.
    explicit HttpResponseDevice(HttpBaseRequest& request);
    ~HttpResponseDevice() override;

    /// Not supported: sets the device error "read is not supported" and returns 0.
    std::uint64_t readBytes(char* data, std::uint64_t size) override;

    /// Appends to the body. The request's worker thread; blocks while more than 256 KiB are handed over and not taken.
    /// @return `size`, or 0 when refused: another thread than the request's worker, after endSending(), or after a
    /// device error. The first of these is a mistake that the log names.
    /// @throws std::bad_alloc
    /// @throws std::length_error
    std::uint64_t writeBytes(const char* data, std::uint64_t size) override QL_EXCLUDES(mutex_);

    /// True when the whole body was taken in one piece, or the device has an error. Any thread.
    bool atEnd() const override;

    /// Hands over everything written so far, a partly filled chunk too. The request's worker thread; blocks as
    /// writeBytes() does.
    void flush() QL_EXCLUDES(mutex_);

    /// The body is complete: hands over the rest, never blocks. The thread that wrote, or another one while that is
    /// held back in writeBytes().
    void endSending() QL_EXCLUDES(mutex_);

    // Any thread, without a lock; each is a snapshot.
    /// Whether endSending() was called.
    bool isEndSending() const { return endSending_.load(std::memory_order_acquire); }
    /// Whether bytes are handed over and not taken yet.
    bool hasDataToSend() const { return getDataSize() != 0; }
    /// Bytes handed over and not taken yet.
    std::uint64_t getDataSize() const { return queuedBytes_.load(std::memory_order_acquire); }
    /// Bytes that writeBytes() accepted, or of releaseBuffer().
    std::int64_t getSentBytes() const { return writtenBytes_.load(std::memory_order_relaxed); }

    /// Replaces `out` by everything handed over and not taken yet. The daemon thread, under the lock, after
    /// endSending().
    void getData(std::vector<char>& out) QL_REQUIRES(mutex_);

    /// Copies up to `max` bytes of the body to `buffer`. The daemon thread; never waits for the writer.
    /// @param endOfStream set when nothing is left and the body is complete.
    /// @param noMoreData always the same as `endOfStream`.
    /// @return the number of bytes copied.
    std::uint64_t sendChunksThreadSafe(void* buffer, std::uint64_t max, bool& endOfStream, bool& noMoreData)
        QL_EXCLUDES(mutex_);

    /// Nobody takes the body any more: sets the device error "lost connection : " followed by `reason`, which refuses
    /// later writes, and releases a waiting writer. Any thread, under the lock.
    void setConnectionLost(const std::string& reason) QL_REQUIRES(mutex_);

    /// What setConnectionLost() is called under. Not to be held for long: the daemon thread waits for it.
    qlMutex& getLock() const QL_RETURN_CAPABILITY(mutex_) { return mutex_; }
    /// Takes getLock().
    /// @param reason says who locks; not used.
    void lock(const char* reason) QL_ACQUIRE(mutex_);
    /// Gives getLock() back.
    void unlock() QL_RELEASE(mutex_);

    /// A snapshot, without a lock.
    ResponseState getResponseState() const { return responseState_.load(std::memory_order_acquire); }

    /// Under the lock. An application sets Ready once and nothing else.
    void setResponseState(ResponseState state) QL_REQUIRES(mutex_);

    /// Status, headers and cookies are final: takes the lock and sets Ready. Any thread.
    void releaseResponse() QL_EXCLUDES(mutex_);

    /// The same with a part of a file as the whole body: nothing is written before, and later writes are refused. Where
    /// the system can send a file by itself, it does; over TLS and on Windows the library reads it in blocks of 64 KiB.
    /// Any thread.
    ///
    /// A file that has become shorter, or cannot be read, breaks the connection off where the library reads it, which
    /// the log tells. The system's sending stops there and says nothing: http::ServerOptions::setWriteTimeoutMs() ends
    /// it.
    /// @param file a descriptor of a regular file that can be read, on Windows a HANDLE. Taken over in any case, and
    /// closed at the end. With a body that is written or released already the device gets an error.
    /// @param offset where the part begins.
    /// @param size of the part, in bytes.
    void releaseFile(std::uint64_t file, std::uint64_t offset, std::uint64_t size) QL_EXCLUDES(mutex_);

    /// The same with bytes of the application's as the whole body, which are sent from where they lie: nothing is
    /// copied. Any thread.
    /// @param data does not change any more, and is there until the request is scheduler-done.
    /// @param owner who keeps the bytes, if that is neither the request nor somebody for ever. The daemon thread lets
    /// go of it right after the request has become scheduler-done, and before http::RequestOwner::onRequestDone(); or
    /// the caller, at once, where nobody wants the body. Under no lock; must not throw.
    void releaseBuffer(const char* data, std::uint64_t size, std::shared_ptr<const void> owner = nullptr)
        QL_EXCLUDES(mutex_);

private:
    using ChunkList = std::list<std::vector<char>>;

    /// Takes the body over in any case. It goes under no lock.
    void releaseWhole(impl::WholeBody&& body) QL_EXCLUDES(mutex_);
    /// Moves the pending chunks before `end`, `bytes` in all, to the send queue.
    void handOver(ChunkList::const_iterator end, std::uint64_t bytes) QL_REQUIRES(mutex_);

    HttpBaseRequest& request_;
    /// Written under mutex_; dispatch polls it alone, and decides again under the lock.
    std::atomic<ResponseState> responseState_{ResponseState::NotReady};
    /// Handed over and not taken.
    ChunkList sendQueue_ QL_GUARDED_BY(mutex_);
    /// Bytes in sendQueue_. Written under mutex_; read alone as a snapshot.
    std::atomic<std::uint64_t> queuedBytes_{0};
    /// Written and not handed over: the writing thread's, and while that waits for room endSending()'s.
    ChunkList pending_;
    std::uint64_t pendingBytes_ = 0;
    /// Since the last hand-over; the writing thread's alone.
    qlTimer handoverTimer_;
    /// Taken by the daemon thread, which alone touches it.
    ChunkList daemonChunks_;
    /// Read position in the front chunk of daemonChunks_; the daemon thread's alone.
    std::uint64_t daemonOffset_ = 0;
    /// Of who writes, or releases a whole body; read alone as a statistic.
    std::atomic<std::int64_t> writtenBytes_{0};
    mutable qlMutex mutex_;
    qlWaitCondition waitCondition_;
    /// Written under mutex_; read alone, since it only ever rises.
    std::atomic<bool> endSending_{false};
    /// The daemon thread's; read alone by atEnd().
    std::atomic<bool> dataTaken_{false};
    /// The next write hands over a partly filled chunk too; the writing thread's alone.
    bool forceHandover_ = false;
    std::unique_ptr<impl::Reserve> reserve_;
};

} // namespace ql
