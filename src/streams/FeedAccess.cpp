#include "streams/FeedAccess.h"

#include "streams/FeedState.h"

#include <string>

namespace ql::impl {

void FeedAccess::setWindow(HttpReceiveDevice& device, std::uint64_t bytes) {
    const qlMutexLocker locker(device.mutex_);
    device.state_ = std::make_unique<FeedState>();
    device.state_->windowBytes = bytes;
}

void FeedAccess::begin(HttpReceiveDevice& device, std::uint64_t windowBytes, bool comesBody) {
    if (comesBody && windowBytes != 0) {
        setWindow(device, windowBytes);
    }
    if (!comesBody) {
        const qlMutexLocker locker(device.mutex_);
        device.endFeed();
    }
}

void FeedAccess::accept(HttpReceiveDevice& device) {
    const qlMutexLocker locker(device.mutex_);
    if (device.state_) {
        device.noteReader();
    }
}

bool FeedAccess::hasReader(HttpReceiveDevice& device) {
    const qlMutexLocker locker(device.mutex_);
    return device.state_->hasReader;
}

bool FeedAccess::hasRoom(HttpReceiveDevice& device, std::uint64_t size) {
    const qlMutexLocker locker(device.mutex_);
    FeedState& state = *device.state_;
    // Into an empty buffer any piece goes, be it larger than the window.
    const std::uint64_t buffered = device.bufferedBytes_;
    const std::uint64_t added = size - device.directBytes(size);
    state.isHeld = buffered != 0 && (buffered >= state.windowBytes || added > state.windowBytes - buffered);
    return !state.isHeld;
}

bool FeedAccess::isHeld(HttpReceiveDevice& device) {
    const qlMutexLocker locker(device.mutex_);
    const FeedState* const state = device.state_.get();
    return state != nullptr && state->isHeld && device.bufferedBytes_ >= state->windowBytes / 2;
}

void FeedAccess::fail(HttpReceiveDevice& device, const char* reason) noexcept {
    const qlMutexLocker locker(device.mutex_);
    if (device.noMoreFeed_ || device.hasDeviceError()) {
        return;
    }
    try {
        device.setDeviceError(std::string("lost connection : ") + reason);
    } catch (...) {
        // Memory was short. The reader must stop, with or without a text to say why.
        device.setDeviceError({});
    }
    device.waitCondition_.wakeAll();
}

} // namespace ql::impl
