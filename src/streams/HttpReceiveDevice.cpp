#include "vireo/HttpReceiveDevice.h"

#include "request/Misuse.h"
#include "streams/ChunkList.h"
#include "streams/DaemonCall.h"
#include "streams/FeedState.h"
#include "streams/ResponseWait.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlTimer.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <thread>
#include <utility>

namespace ql {

namespace {

/// A wait is cut into slices, so that the reader can run the idle callback and look for the end between them.
constexpr unsigned long WaitSliceMs = 1000;
constexpr std::int64_t StarvationSec = 360;
/// How often a reader offers its core before it sleeps.
constexpr int MaxLooks = 4;

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
    beginReading(bufferedBytes_ < size && !noMoreFeed_);
    for (bool firstPass = true; remaining != 0 && !atEnd(); firstPass = false) {
        char* const out = data + (size - remaining);
        std::uint64_t copied = 0;
        if (!firstPass) {
            request_.updateIdleCallback();
            copied = waitForFeed(out, remaining, false);
        }
        copied += takeBuffered(out + copied, remaining - copied);
        remaining -= copied;
        noteTaken(copied, sinceLastByte);
    }
    return size - remaining;
}

std::uint64_t HttpReceiveDevice::readSome(char* data, std::uint64_t size) {
    if (size == 0) {
        return 0;
    }
    qlTimer sinceLastByte(true);
    std::uint64_t taken = 0;
    const qlMutexLocker locker(mutex_);
    beginReading(bufferedBytes_ == 0 && !noMoreFeed_);
    for (bool firstPass = true; taken == 0 && !atEnd(); firstPass = false) {
        if (!firstPass) {
            taken = waitForFeed(data, size, true);
        }
        taken += takeBuffered(data + taken, size - taken);
        noteTaken(taken, sinceLastByte);
    }
    return taken;
}

void HttpReceiveDevice::noteReader() {
    if (!std::exchange(state_->hasReader, true)) {
        impl::tellNews(request_);
    }
}

void HttpReceiveDevice::beginReading(bool willWait) {
    if (willWait && impl::DaemonCall::isUnderWay()) {
        mutex_.unlock();
        impl::nameMisuse(request_, impl::Misuse::ReadOnDaemonThread);
        mutex_.lock();
    }
    if (willWait && !state_) {
        // Before anything was taken, since this may fail.
        state_ = std::make_unique<impl::FeedState>();
    }
    if (state_) {
        noteReader();
    }
}

std::uint64_t HttpReceiveDevice::waitForFeed(char* data, std::uint64_t size, bool wantsAny) {
    state_->wantedAt = data;
    state_->wantsAny = wantsAny;
    wantedBytes_ = size;
    // Where nobody polls, who brings the bytes gets the core a few times: they may spare both a wake-up.
    const int maxLooks = state_->windowBytes != 0 ? MaxLooks : 0;
    bool isOver = false;
    for (int looks = 0; looks < maxLooks && !isOver; ++looks) {
        mutex_.unlock();
        std::this_thread::yield();
        mutex_.lock();
        isOver = isReaderDue() || noMoreFeed_ || hasDeviceError();
    }
    if (!isOver) {
        waitCondition_.wait(&mutex_, WaitSliceMs);
    }
    wantedBytes_ = 0;
    return std::exchange(state_->filledBytes, 0);
}

std::uint64_t HttpReceiveDevice::takeBuffered(char* data, std::uint64_t size) {
    const std::uint64_t taken = impl::takeFromChunks(chunks_, readOffset_, data, size);
    // A device that was reset in the middle of a chunk holds more than it counts.
    bufferedBytes_ -= (std::min)(taken, bufferedBytes_);
    if (state_ && state_->isHeld && bufferedBytes_ < state_->windowBytes / 2) {
        impl::tellNews(request_);
    }
    return taken;
}

void HttpReceiveDevice::noteTaken(std::uint64_t size, qlTimer& sinceLastByte) {
    receivedBytes_.fetch_add(static_cast<std::int64_t>(size), std::memory_order_relaxed);
    if (size != 0) {
        sinceLastByte.restart();
    } else if (sinceLastByte.isElapsedSec(StarvationSec)) {
        setDeviceError("wait too long without incoming data");
        return;
    }
    if (noMoreFeed_ && chunks_.empty()) {
        ended_ = true;
    }
}

std::uint64_t HttpReceiveDevice::writeBytes(const char* data, std::uint64_t size) {
    if (!append(data, size)) {
        return 0;
    }
    if (isReaderDue()) {
        waitCondition_.wakeAll();
    }
    return size;
}

void HttpReceiveDevice::feed(const char* data, std::uint64_t size) {
    qlMutexLocker locker(mutex_);
    append(data, size);
    const bool wake = isReaderDue();
    locker.unlock();
    if (wake) {
        waitCondition_.wakeAll();
    }
}

std::uint64_t HttpReceiveDevice::directBytes(std::uint64_t size) const {
    return wantedBytes_ == 0 ? 0 : (std::min)(size, wantedBytes_ - state_->filledBytes);
}

bool HttpReceiveDevice::append(const char* data, std::uint64_t size) {
    if (noMoreFeed_) {
        setDeviceError("no more feed");
        return false;
    }
    const std::uint64_t direct = directBytes(size);
    // First what can fail.
    impl::appendToChunks(chunks_, data + direct, size - direct, bufferedBytes_);
    if (direct != 0) {
        std::memcpy(state_->wantedAt + state_->filledBytes, data, static_cast<std::size_t>(direct));
        state_->filledBytes += direct;
    }
    return true;
}

bool HttpReceiveDevice::isReaderDue() const {
    if (wantedBytes_ == 0) {
        return false;
    }
    // A reader that wants more than there is finds smaller arrivals at its next slice: one wake-up for many of them.
    return state_->wantsAny ? state_->filledBytes != 0 : state_->filledBytes == wantedBytes_;
}

bool HttpReceiveDevice::atEnd() const {
    return ended_.load(std::memory_order_acquire) || hasDeviceError();
}

void HttpReceiveDevice::endFeed() {
    waitCondition_.wakeAll();
    noMoreFeed_ = true;
    if (chunks_.empty() && (!state_ || state_->filledBytes == 0)) {
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
