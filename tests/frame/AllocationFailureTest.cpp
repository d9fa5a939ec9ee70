// What is left when memory runs out, at each allocation in turn.

#include "support/FailingAllocation.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/Vireo.h"
#include "vireo/support/LibInitCounter.h"
#include "vireo/support/SupportLibraries.h"
#include "vireo/support/qlIoDevice.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>

namespace {

using vireotest::failAllocation;

TEST(AllocationFailure, InitializationLeavesNothingUpAndTheNextOneWorks) {
    ql::initializeTanager("");
    std::size_t failures = 0;
    for (bool worked = false; !worked;) {
        failAllocation(failures + 1);
        try {
            ql::initializeVireo();
            worked = true;
        } catch (const std::bad_alloc&) {
            ++failures;
            EXPECT_FALSE(ql::IsVireoInitialized());
            EXPECT_TRUE(ql::HttpBaseRequest::sRequestTypes.empty());
            EXPECT_FALSE(ql::json::isQlPipitInitialized());
            EXPECT_TRUE(ql::impl::GetThirdPartyLibVersionInfos().empty());
        }
        failAllocation(0);
    }
    EXPECT_GT(failures, 10U);
    EXPECT_EQ(ql::HttpBaseRequest::sRequestTypes.size(), 10U);

    ql::terminateVireo();
    EXPECT_FALSE(ql::IsVireoInitialized());
    // The application's own use of a component is not undone.
    EXPECT_TRUE(ql::isTanagerInitialized());
    ql::terminateTanager();
    EXPECT_FALSE(ql::isTanagerInitialized());
}

class Device : public qlIoDevice {
public:
    Device() : qlIoDevice(DataWay::ReadWrite, "device") {}
    std::uint64_t readBytes(char* /*data*/, std::uint64_t /*size*/) override { return 0; }
    std::uint64_t writeBytes(const char* /*data*/, std::uint64_t /*size*/) override { return 0; }
    bool atEnd() const override { return true; }

    using qlIoDevice::clearDeviceError;
    using qlIoDevice::setDeviceError;
};

const std::string message = "a text that is too long for the string's own buffer";

TEST(AllocationFailure, GoodDeviceNeedsNoMemory) {
    failAllocation(1);
    Device device;
    device.clearDeviceError();
    EXPECT_FALSE(device.hasDeviceError());
    EXPECT_EQ(device.getDeviceErrorMsg(), "");
    failAllocation(0);
}

TEST(AllocationFailure, DeviceFailsAlsoWithoutMemoryToSayWhy) {
    for (std::size_t nth = 1; nth <= 2; ++nth) {
        Device device;
        failAllocation(nth);
        device.setDeviceError(message);
        failAllocation(0);
        EXPECT_TRUE(device.hasDeviceError());
        EXPECT_EQ(device.getDeviceErrorMsg(), "");
        device.setDeviceError(message);
        EXPECT_EQ(device.getDeviceErrorMsg(), message);
    }
}

TEST(AllocationFailure, ErrorWithoutMemoryForItsTextDoesNotKeepTheFormerOne) {
    Device device;
    device.setDeviceError("first");
    failAllocation(1);
    device.setDeviceError(message);
    failAllocation(0);
    EXPECT_TRUE(device.hasDeviceError());
    EXPECT_EQ(device.getDeviceErrorMsg(), "");
}

} // namespace
