#include "vireo/support/qlIoDevice.h"

#include "frame/NeverDestroyed.h"
#include "vireo/support/qlMutex.h"

#include <new>
#include <utility>

namespace ql::impl {

struct DeviceErrorState {
    std::string text;
};

} // namespace ql::impl

namespace {

constexpr std::size_t CopyBufferSize = 65536;

/// One for all devices: errors are rare.
qlMutex& errorMutex() {
    static ql::impl::NeverDestroyed<qlMutex> mutex;
    return *mutex;
}

} // namespace

qlCancelInterfaceReadOnly::~qlCancelInterfaceReadOnly() = default;

qlIoDevice::qlIoDevice(DataWay way, const char* name) : way_(way), name_(name) {}

qlIoDevice::~qlIoDevice() = default;

bool qlIoDevice::hasDeviceError() const {
    return failed_.load();
}

std::string qlIoDevice::getDeviceErrorMsg() {
    const qlMutexLocker locker(errorMutex());
    return error_ ? error_->text : std::string();
}

bool qlIoDevice::writeBackToDevice(qlIoDevice& target, std::uint64_t* written, std::vector<char>* buffer,
                                   const qlCancelInterfaceReadOnly* cancel) {
    std::vector<char> own;
    std::vector<char>& memory = buffer != nullptr ? *buffer : own;
    if (memory.empty()) {
        memory.resize(CopyBufferSize);
    }

    std::uint64_t taken = 0;
    bool refused = false;
    while (!refused && !atEnd()) {
        if (cancel != nullptr && cancel->isCanceled()) {
            break;
        }
        const std::uint64_t size = readBytes(memory.data(), memory.size());
        if (size == 0) {
            break;
        }
        const std::uint64_t accepted = target.writeBytes(memory.data(), size);
        taken += accepted;
        refused = accepted != size || target.hasDeviceError();
    }
    if (written != nullptr) {
        *written = taken;
    }
    return !refused && atEnd() && !hasDeviceError() && !target.hasDeviceError();
}

void qlIoDevice::setDeviceError(const std::string& message) {
    const qlMutexLocker locker(errorMutex());
    error_.reset();
    try {
        auto error = std::make_unique<ql::impl::DeviceErrorState>();
        error->text = message;
        error_ = std::move(error);
    } catch (const std::bad_alloc&) {
        // The device has failed, with or without a text to say why.
    }
    failed_.store(true);
}

void qlIoDevice::clearDeviceError() {
    if (!failed_.load()) {
        return;
    }
    const qlMutexLocker locker(errorMutex());
    error_.reset();
    failed_.store(false);
}
