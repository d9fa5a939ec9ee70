#include "vireo/HttpResponseDevice.h"

#include "request/Misuse.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "streams/ChunkList.h"
#include "streams/ResponseWait.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlThread.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <utility>
#include <variant>

namespace ql {

namespace {

/// More than this handed over and not taken makes the writer wait.
constexpr std::uint64_t MaxQueuedBytes = 262144;
/// Written bytes are not held back for longer than this, however few they are.
constexpr std::int64_t MaxHoldBackSec = 120;

/// The chunks at the front of `pending` that are to be handed over: the full ones, or all.
struct DueChunks {
    impl::ChunkList::const_iterator end;
    std::uint64_t bytes;
};

DueChunks dueChunks(const impl::ChunkList& pending, bool all) {
    DueChunks due{pending.cbegin(), 0};
    while (due.end != pending.cend() && (all || due.end->size() == due.end->capacity())) {
        due.bytes += due.end->size();
        ++due.end;
    }
    return due;
}

} // namespace

HttpResponseDevice::HttpResponseDevice(HttpBaseRequest& request)
    : qlIoDevice(DataWay::Write, "[http out]"), request_(request), handoverTimer_(true) {}

HttpResponseDevice::~HttpResponseDevice() {
    // Completion sets the request scheduler-done under the lock and lets go of it last: whoever deletes the request
    // right then waits here until the daemon thread has left the device.
    const qlMutexLocker locker(mutex_);
    sendQueue_.clear();
    pending_.clear();
    daemonChunks_.clear();
}

std::uint64_t HttpResponseDevice::readBytes(char* /*data*/, std::uint64_t /*size*/) {
    setDeviceError("read is not supported");
    impl::tellNews(request_);
    return 0;
}

std::uint64_t HttpResponseDevice::writeBytes(const char* data, std::uint64_t size) {
    if (const std::string& worker = request_.getCurrentWorkerThreadId(); qlThread::CurrentThreadId() != worker) {
        impl::nameMisuse(request_,
                         worker.empty() ? impl::Misuse::WriteWithoutWorker : impl::Misuse::WriteOfAnotherThread);
        return 0;
    }
    if (isEndSending() || hasDeviceError()) {
        return 0;
    }
    request_.resetIdleCallbackTimer();
    impl::appendToChunks(pending_, data, size, pendingBytes_);
    writtenBytes_.fetch_add(static_cast<std::int64_t>(size), std::memory_order_relaxed);

    const bool handOverAll = forceHandover_ || handoverTimer_.isElapsedSec(MaxHoldBackSec);
    forceHandover_ = false;
    const auto due = dueChunks(pending_, handOverAll);
    if (due.bytes == 0) {
        return size;
    }
    handoverTimer_.restart();
    const bool mayWait = getDataSize() > MaxQueuedBytes;
    if (mayWait && getResponseState() == ResponseState::NotReady) {
        impl::nameMisuse(request_, impl::Misuse::WriteBeforeRelease);
    } else if (mayWait) {
        impl::RequestAccess::state(request_).writerWaits.store(true);
        impl::nameMutualWait(request_);
    }
    const qlMutexLocker locker(mutex_);
    // One wait, not a loop: one wake-up lets these chunks in even if the queue is still long. The next hand-over waits
    // again, which keeps it near its limit. A connection that is already lost will wake nobody any more.
    if (getDataSize() > MaxQueuedBytes && !hasDeviceError() && !isEndSending()) {
        waitCondition_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
    }
    if (mayWait) {
        impl::RequestAccess::state(request_).writerWaits.store(false);
    }
    // Another thread that ended the body meanwhile has handed over all there was.
    if (!isEndSending()) {
        handOver(due.end, due.bytes);
    }
    if (getResponseState() == ResponseState::Streaming) {
        impl::tellNews(request_);
    }
    return size;
}

void HttpResponseDevice::handOver(ChunkList::const_iterator end, std::uint64_t bytes) {
    sendQueue_.splice(sendQueue_.end(), pending_, pending_.cbegin(), end);
    queuedBytes_.store(getDataSize() + bytes, std::memory_order_release);
    pendingBytes_ -= bytes;
}

bool HttpResponseDevice::atEnd() const {
    return dataTaken_.load(std::memory_order_acquire) || hasDeviceError();
}

void HttpResponseDevice::flush() {
    forceHandover_ = true;
    writeBytes(nullptr, 0);
}

void HttpResponseDevice::endSending() {
    const qlMutexLocker locker(mutex_);
    endSending_.store(true, std::memory_order_release);
    if (!hasDeviceError()) {
        handOver(pending_.cend(), pendingBytes_);
    }
    // A writer that is held back has nothing left to wait for: a body that goes out in one piece wakes nobody.
    waitCondition_.wakeAll();
    impl::tellNews(request_);
}

void HttpResponseDevice::getData(std::vector<char>& out) {
    if (sendQueue_.size() == 1) {
        out = std::move(sendQueue_.front());
    } else {
        out.clear();
        out.reserve(static_cast<std::size_t>(getDataSize()));
        for (std::vector<char>& chunk : sendQueue_) {
            out.insert(out.end(), chunk.begin(), chunk.end());
            impl::recycleChunk(std::move(chunk));
        }
    }
    sendQueue_.clear();
    queuedBytes_.store(0, std::memory_order_release);
    dataTaken_.store(true, std::memory_order_release);
}

std::uint64_t HttpResponseDevice::sendChunksThreadSafe(void* buffer, std::uint64_t max, bool& endOfStream,
                                                       bool& noMoreData) {
    endOfStream = false;
    noMoreData = false;
    char* const out = static_cast<char*>(buffer);
    // Who waits by events is sure to come back, so that one wake-up does for several chunks.
    const bool waitsByEvents = impl::RequestAccess::state(request_).wait != nullptr;
    const std::uint64_t wakingBytes = waitsByEvents ? MaxQueuedBytes / 2 : (std::numeric_limits<std::uint64_t>::max)();
    std::uint64_t copied = 0;
    while (true) {
        copied += impl::takeFromChunks(daemonChunks_, daemonOffset_, out + copied, max - copied);
        if (copied == max) {
            break;
        }
        qlMutexLocker locker(mutex_);
        if (sendQueue_.empty()) {
            endOfStream = isEndSending();
            noMoreData = endOfStream;
            break;
        }
        auto end = sendQueue_.cbegin();
        std::uint64_t taken = 0;
        while (end != sendQueue_.cend() && taken < max - copied) {
            taken += end->size();
            ++end;
        }
        daemonChunks_.splice(daemonChunks_.end(), sendQueue_, sendQueue_.cbegin(), end);
        queuedBytes_.store(getDataSize() - taken, std::memory_order_release);
        locker.unlock();
        // The writer held at the limit needs the lock: it is free for it now.
        if (getDataSize() <= wakingBytes) {
            waitCondition_.wakeAll();
        }
    }
    return copied;
}

void HttpResponseDevice::setConnectionLost(const std::string& reason) {
    waitCondition_.wakeAll();
    try {
        setDeviceError("lost connection : " + reason);
    } catch (...) {
        // Memory was short. The writer must stop, with or without a text to say why.
        setDeviceError({});
    }
    impl::tellNews(request_);
}

void HttpResponseDevice::lock(const char* /*reason*/) {
    mutex_.lock();
}

void HttpResponseDevice::unlock() {
    mutex_.unlock();
}

void HttpResponseDevice::setResponseState(ResponseState state) {
    responseState_.store(state, std::memory_order_release);
    if (state == ResponseState::Ready) {
        impl::tellNews(request_);
    }
}

void HttpResponseDevice::releaseResponse() {
    const qlMutexLocker locker(mutex_);
    setResponseState(ResponseState::Ready);
}

void HttpResponseDevice::releaseFile(std::uint64_t file, std::uint64_t offset, std::uint64_t size) {
    releaseWhole({impl::FileBody(file, offset, size)});
}

void HttpResponseDevice::releaseBuffer(const char* data, std::uint64_t size, std::shared_ptr<const void> owner) {
    releaseWhole({impl::BufferBody{{data, static_cast<std::size_t>(size)}, std::move(owner)}});
}

void HttpResponseDevice::releaseWhole(impl::WholeBody&& body) {
    // What nobody sends goes with it, under no lock.
    std::optional<impl::WholeBody> whole(std::move(body));
    const auto* const buffer = std::get_if<impl::BufferBody>(&whole->source);
    const impl::Misuse misuse = buffer == nullptr ? impl::Misuse::FileBesideBody : impl::Misuse::BufferBesideBody;
    qlMutexLocker locker(mutex_);
    const bool isReleased = getResponseState() != ResponseState::NotReady;
    const bool isMisuse = !hasDeviceError() && (isReleased || isEndSending() || getSentBytes() != 0);
    if (isMisuse) {
        setDeviceError(buffer == nullptr ? "a file beside another body" : "a buffer beside another body");
    } else if (!hasDeviceError()) {
        if (buffer != nullptr) {
            writtenBytes_.fetch_add(static_cast<std::int64_t>(buffer->bytes.size()), std::memory_order_relaxed);
        }
        impl::RequestAccess::state(request_).wholeBody.swap(whole);
    }
    endSending_.store(true, std::memory_order_release);
    waitCondition_.wakeAll();
    if (isReleased) {
        impl::tellNews(request_);
    } else {
        setResponseState(ResponseState::Ready);
    }
    locker.unlock();
    if (isMisuse) {
        impl::nameMisuse(request_, misuse);
    }
}

} // namespace ql
