// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/qlIoDevice.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlTimer.h"
#include "vireo/support/qlWaitCondition.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <vector>

namespace ql {

class HttpBaseRequest;

namespace impl {
struct FeedAccess;
struct FeedState;
} // namespace impl

/// The body of one request as a stream: a daemon thread feeds it, the request's worker thread reads it.
///
/// Memory: what has arrived and was not read yet is held in chunks of at least 64 KiB, without an upper bound. A
/// reader that keeps up bounds it, and so does a server with http::ServerOptions::Waiting::Event.
///
/// Shutdown: readBytes() blocks until it has what was asked for, the body has ended, the device has an error, or
/// nothing has come for 360 seconds. A client that goes away, or a server that stops, does not end the feed: the
/// application's scheduler does, which sees the request become scheduler-done and calls endFeed() under getLock(). With
/// Waiting::Event the library ends it, with the device error "lost connection : " and the reason.
class VIREO_API HttpReceiveDevice : public qlIoDevice {
public:
    /// @param request the owner; outlives the device.
    explicit HttpReceiveDevice(HttpBaseRequest& request);
    ~HttpReceiveDevice() override;

    /// Reads the next `size` bytes of the body. The request's worker thread; blocks, and meanwhile runs the request's
    /// idle callback and notifies its server implementation about once a second. On a daemon thread a wait never ends,
    /// since that would have to feed it: the log names it.
    /// @return the number of bytes copied. Fewer than `size` only when the body has ended or the device has an error,
    /// "wait too long without incoming data" among them.
    std::uint64_t readBytes(char* data, std::uint64_t size) override;

    /// Reads what is there of the body, at most `size` bytes; blocks only until there is any. Any thread, one at a
    /// time: it drives no idle callback and notifies nobody, so that it takes no registered worker. On a daemon thread
    /// a wait never ends.
    /// @return how many bytes were copied; 0 when the body has ended, the device has an error, which it gets after 360
    /// seconds without a byte as well, or `size` is 0.
    std::uint64_t readSome(char* data, std::uint64_t size);

    /// Appends to the body. The feeding thread, which holds getLock(). Never blocks.
    /// @return `size`, or 0 with the device error "no more feed" after endFeed().
    /// @throws std::bad_alloc
    /// @throws std::length_error
    std::uint64_t writeBytes(const char* data, std::uint64_t size) override QL_REQUIRES(mutex_);

    /// True once everything has been read after the end of the feed, or the device has an error. Any thread.
    bool atEnd() const override;

    /// Locks, appends as writeBytes() does, and wakes the reader once the lock is free for it. The feeding thread; the
    /// request must not be deleted meanwhile.
    /// @throws std::bad_alloc
    /// @throws std::length_error
    void feed(const char* data, std::uint64_t size) QL_EXCLUDES(mutex_);

    /// The body is complete; a blocked reader returns once it has read what is there. May be called again. Any
    /// thread, which holds getLock().
    void endFeed() QL_REQUIRES(mutex_);

    /// Makes an ended device feed again, with its error and counters cleared. What is buffered stays. No other thread
    /// may use the device meanwhile.
    void reset() QL_EXCLUDES(mutex_);

    /// Bytes handed to the reader since construction or reset(). Any thread, without a lock.
    std::int64_t getReceivedBytes() const { return receivedBytes_.load(std::memory_order_relaxed); }

    /// What endFeed() is called under. Not to be held for long: the daemon thread waits for it.
    qlMutex& getLock() const QL_RETURN_CAPABILITY(mutex_) { return mutex_; }

private:
    friend struct impl::FeedAccess;

    /// The first reader has the daemon thread look.
    void noteReader() QL_REQUIRES(mutex_);
    /// A reader is there, which will have to wait, or not.
    void beginReading(bool willWait) QL_REQUIRES(mutex_);
    /// Waits for a slice of time until the bytes are there, or any of them. @return how many are.
    std::uint64_t waitForFeed(char* data, std::uint64_t size, bool wantsAny) QL_REQUIRES(mutex_);
    /// Takes what is buffered, which may make room for more. @return how many bytes.
    std::uint64_t takeBuffered(char* data, std::uint64_t size) QL_REQUIRES(mutex_);
    /// So many bytes have come to the reader. Ends the device with an error when none have for too long, and at the end
    /// of the body.
    void noteTaken(std::uint64_t size, qlTimer& sinceLastByte) QL_REQUIRES(mutex_);
    /// How many of the next bytes go to a blocked reader without being buffered.
    std::uint64_t directBytes(std::uint64_t size) const QL_REQUIRES(mutex_);
    /// @return false after the end of the feed, with the device error set.
    bool append(const char* data, std::uint64_t size) QL_REQUIRES(mutex_);
    /// Whether a reader is blocked that has what it waits for.
    bool isReaderDue() const QL_REQUIRES(mutex_);

    mutable qlMutex mutex_;
    qlWaitCondition waitCondition_;
    /// Written under mutex_; atEnd() reads it alone, since it only ever rises during a request.
    std::atomic<bool> ended_{false};
    HttpBaseRequest& request_;
    std::list<std::vector<char>> chunks_ QL_GUARDED_BY(mutex_);
    std::uint64_t bufferedBytes_ QL_GUARDED_BY(mutex_) = 0;
    /// What a blocked reader still wants; 0 when none waits.
    std::uint64_t wantedBytes_ QL_GUARDED_BY(mutex_) = 0;
    /// Read position in the front chunk.
    std::uint64_t readOffset_ QL_GUARDED_BY(mutex_) = 0;
    /// Written under mutex_; read alone as a statistic.
    std::atomic<std::int64_t> receivedBytes_{0};
    bool noMoreFeed_ QL_GUARDED_BY(mutex_) = false;
    /// Null until a reader has to wait.
    std::unique_ptr<impl::FeedState> state_ QL_GUARDED_BY(mutex_);
};

} // namespace ql
