// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ql::impl {
struct DeviceErrorState;
}

/// Lets a long transfer be cancelled from another thread.
class VIREO_API qlCancelInterfaceReadOnly {
public:
    virtual ~qlCancelInterfaceReadOnly();
    /// True once the work should stop. Called often, on the thread that works.
    virtual bool isCanceled() const = 0;
};

/// A stream of bytes. What may be called on which thread is the derived class's to say; the device error has its own
/// synchronization and may be set and read from any thread.
class VIREO_API qlIoDevice {
public:
    /// Which ways bytes can go through the device.
    enum class DataWay : std::uint32_t {
        None = 0,
        Read = 1,
        Write = 2,
        ReadWrite = 3,
    };

    /// @param name names the device in messages; must outlive it (a literal does).
    qlIoDevice(DataWay way, const char* name);
    virtual ~qlIoDevice();
    qlIoDevice(const qlIoDevice&) = delete;
    qlIoDevice& operator=(const qlIoDevice&) = delete;

    /// Reads up to `size` bytes into `data`.
    /// @return the number of bytes read; 0 also on failure, see hasDeviceError().
    virtual std::uint64_t readBytes(char* data, std::uint64_t size) = 0;

    /// Writes `size` bytes from `data`.
    /// @return `size`, or 0 when the device refuses them.
    virtual std::uint64_t writeBytes(const char* data, std::uint64_t size) = 0;

    /// True when nothing more can be read.
    virtual bool atEnd() const = 0;

    /// True once the device has failed.
    virtual bool hasDeviceError() const;

    /// What failed, in a few words; empty when nothing did.
    virtual std::string getDeviceErrorMsg();

    /// Copies what this device still has to give into `target`, until atEnd(), a failure of either, or cancellation.
    /// @param written if not null, receives the number of bytes that `target` took.
    /// @param buffer the memory to copy through, used at its size (64 KiB when that is 0); null for a buffer of the
    /// call's own.
    /// @param cancel asked before each piece; null for never.
    /// @return true when everything up to atEnd() was copied and neither device failed.
    virtual bool writeBackToDevice(qlIoDevice& target, std::uint64_t* written, std::vector<char>* buffer,
                                   const qlCancelInterfaceReadOnly* cancel);

    /// The ways given at construction.
    DataWay getDataWay() const { return way_; }
    /// The name given at construction.
    const char* getDeviceName() const { return name_; }

protected:
    /// Stores the text and makes hasDeviceError() true. A later error replaces the text. Never fails: without memory
    /// for the text there is none. Any thread.
    void setDeviceError(const std::string& message);
    /// Forgets the device error. Any thread.
    void clearDeviceError();

private:
    const DataWay way_;
    const char* const name_;
    /// Written under the lock of all devices' errors, and read without: it only ever answers "has anything failed",
    /// and whoever needs the text locks.
    std::atomic<bool> failed_{false};
    /// Null until the first error. Under the same lock.
    std::unique_ptr<ql::impl::DeviceErrorState> error_;
};
