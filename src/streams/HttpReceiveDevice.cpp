#include "vireo/HttpReceiveDevice.h"

#include "streams/ChunkList.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlTimer.h"

namespace ql {

namespace {

/// A wait is cut into slices, so that the reader can run the idle callback and look for the end between them.
constexpr unsigned long WaitSliceMs = 1000;
constexpr std::int64_t StarvationSec = 360;

} // namespace

HttpReceiveDevice::HttpReceiveDevice(HttpBaseRequest& request)
    : qlIoDevice(DataWay::ReadWrite, "[http in]"), request_(request) {}

HttpReceiveDevice::~HttpReceiveDevice() = default;

std::uint64_t HttpReceiveDevice::readBytes(char* data, std::uint64_t size) {
    if (size == 0) {
        return 0;
    }
    request_.updateIdleCallback();
    qlTimer sinceLastByte(true);
    std::uint64_t remaining = size;
    const qlMutexLocker locker(mutex_);
    for (bool firstPass = true; remaining != 0 && !atEnd(); firstPass = false) {
        if (!firstPass) {
            request_.updateIdleCallback();
            wantedBytes_ = remaining;
            waitCondition_.wait(&mutex_, WaitSliceMs);
            wantedBytes_ = 0;
        }
        const std::uint64_t copied = takeFromChunks(chunks_, readOffset_, data + (size - remaining), remaining);
        remaining -= copied;
        bufferedBytes_ -= copied;
        receivedBytes_.fetch_add(static_cast<std::int64_t>(copied), std::memory_order_relaxed);
        if (copied != 0) {
            sinceLastByte.restart();
        } else if (sinceLastByte.isElapsedSec(StarvationSec)) {
            setDeviceError("wait too long without incoming data");
            break;
        }
        if (noMoreFeed_ && chunks_.empty()) {
            ended_ = true;
        }
    }
    return size - remaining;
}

std::uint64_t HttpReceiveDevice::writeBytes(const char* data, std::uint64_t size) {
    if (noMoreFeed_) {
        setDeviceError("no more feed");
        return 0;
    }
    appendToChunks(chunks_, data, size, bufferedBytes_);
    // A reader that wants more than there is finds smaller arrivals at its next slice: one wake-up for many of them.
    if (wantedBytes_ != 0 && bufferedBytes_ >= wantedBytes_) {
        waitCondition_.wakeAll();
    }
    return size;
}

bool HttpReceiveDevice::atEnd() const {
    return ended_.load(std::memory_order_acquire) || hasDeviceError();
}

void HttpReceiveDevice::endFeed() {
    waitCondition_.wakeAll();
    noMoreFeed_ = true;
    if (chunks_.empty()) {
        ended_ = true;
    }
}

void HttpReceiveDevice::reset() {
    const qlMutexLocker locker(mutex_);
    clearDeviceError();
    ended_ = false;
    readOffset_ = 0;
    receivedBytes_ = 0;
    noMoreFeed_ = false;
}

} // namespace ql
