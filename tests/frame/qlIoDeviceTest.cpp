#include "vireo/support/qlIoDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

/// Gives its text in pieces of at most `pieceSize` bytes and keeps what is written to it.
class TextDevice : public qlIoDevice {
public:
    explicit TextDevice(std::string text = {}, std::uint64_t pieceSize = 1000000)
        : qlIoDevice(DataWay::ReadWrite, "text"), text_(std::move(text)), pieceSize_(pieceSize) {}

    std::uint64_t readBytes(char* data, std::uint64_t size) override {
        readSizes.push_back(size);
        if (failAtRead != 0 && readSizes.size() == failAtRead) {
            setDeviceError("read failed");
        }
        if (giveNothing) {
            return 0;
        }
        const std::uint64_t given = std::min({size, pieceSize_, text_.size() - readOffset_});
        std::memcpy(data, text_.data() + readOffset_, given);
        readOffset_ += given;
        return given;
    }

    std::uint64_t writeBytes(const char* data, std::uint64_t size) override {
        ++writes;
        if (refuseAtWrite != 0 && writes == refuseAtWrite) {
            return 0;
        }
        if (failAtWrite != 0 && writes == failAtWrite) {
            setDeviceError("write failed");
        }
        taken.append(data, size);
        return size;
    }

    bool atEnd() const override { return readOffset_ == text_.size(); }

    using qlIoDevice::clearDeviceError;
    using qlIoDevice::setDeviceError;

    std::vector<std::uint64_t> readSizes;
    std::string taken;
    std::size_t failAtRead = 0;
    std::size_t refuseAtWrite = 0;
    std::size_t failAtWrite = 0;
    std::size_t writes = 0;
    bool giveNothing = false;

private:
    std::string text_;
    std::uint64_t pieceSize_;
    std::size_t readOffset_ = 0;
};

/// Says stop after a number of questions.
class CancelAfter : public qlCancelInterfaceReadOnly {
public:
    explicit CancelAfter(int questions) : left_(questions) {}
    bool isCanceled() const override { return left_-- <= 0; }

private:
    mutable int left_;
};

TEST(qlIoDevice, KeepsItsWayAndName) {
    const TextDevice device;
    EXPECT_EQ(device.getDataWay(), qlIoDevice::DataWay::ReadWrite);
    EXPECT_STREQ(device.getDeviceName(), "text");
    EXPECT_EQ(static_cast<std::uint32_t>(qlIoDevice::DataWay::Write), 2U);
    EXPECT_EQ(static_cast<std::uint32_t>(qlIoDevice::DataWay::ReadWrite), 3U);
}

TEST(qlIoDevice, HasNoErrorAtFirst) {
    TextDevice device;
    EXPECT_FALSE(device.hasDeviceError());
    EXPECT_EQ(device.getDeviceErrorMsg(), "");
}

TEST(qlIoDevice, ALaterErrorReplacesTheText) {
    TextDevice device;
    device.setDeviceError("first");
    EXPECT_TRUE(device.hasDeviceError());
    EXPECT_EQ(device.getDeviceErrorMsg(), "first");
    device.setDeviceError("second");
    EXPECT_EQ(device.getDeviceErrorMsg(), "second");
}

TEST(qlIoDevice, AnErrorWithoutTextIsAnError) {
    TextDevice device;
    device.setDeviceError("");
    EXPECT_TRUE(device.hasDeviceError());
}

TEST(qlIoDevice, ClearedErrorIsGone) {
    TextDevice device;
    device.setDeviceError("first");
    device.clearDeviceError();
    EXPECT_FALSE(device.hasDeviceError());
    EXPECT_EQ(device.getDeviceErrorMsg(), "");
}

TEST(qlIoDevice, ErrorMayBeSetAndReadOnDifferentThreads) {
    constexpr int rounds = 2000;
    TextDevice device;
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            device.setDeviceError("a text that is too long for the string's own buffer");
            device.clearDeviceError();
        }
        device.setDeviceError("last");
    });
    for (int i = 0; i < rounds; ++i) {
        const std::string text = device.getDeviceErrorMsg();
        EXPECT_TRUE(text.empty() || text == "last" || text.size() == 51) << text;
        (void)device.hasDeviceError();
    }
    other.join();
    EXPECT_TRUE(device.hasDeviceError());
    EXPECT_EQ(device.getDeviceErrorMsg(), "last");
}

TEST(WriteBackToDevice, CopiesEverythingPieceByPiece) {
    TextDevice source("0123456789", 3);
    TextDevice target;
    std::uint64_t written = 99;
    EXPECT_TRUE(source.writeBackToDevice(target, &written, nullptr, nullptr));
    EXPECT_EQ(target.taken, "0123456789");
    EXPECT_EQ(target.writes, 4U);
    EXPECT_EQ(written, 10U);
}

TEST(WriteBackToDevice, TheCountMayBeNull) {
    TextDevice source("0123456789");
    TextDevice target;
    EXPECT_TRUE(source.writeBackToDevice(target, nullptr, nullptr, nullptr));
    EXPECT_EQ(target.taken, "0123456789");
}

TEST(WriteBackToDevice, NothingToGiveIsASuccessWithoutRead) {
    TextDevice source;
    TextDevice target;
    std::uint64_t written = 99;
    EXPECT_TRUE(source.writeBackToDevice(target, &written, nullptr, nullptr));
    EXPECT_EQ(written, 0U);
    EXPECT_TRUE(source.readSizes.empty());
}

TEST(WriteBackToDevice, BufferIsUsedAtItsSize) {
    TextDevice source("0123456789");
    TextDevice target;
    std::vector<char> buffer(4);
    EXPECT_TRUE(source.writeBackToDevice(target, nullptr, &buffer, nullptr));
    EXPECT_EQ(source.readSizes, (std::vector<std::uint64_t>{4, 4, 4}));
    EXPECT_EQ(target.taken, "0123456789");
    EXPECT_EQ(buffer.size(), 4U);
}

TEST(WriteBackToDevice, EmptyBufferGrowsTo64KiB) {
    TextDevice source("0123456789");
    TextDevice target;
    std::vector<char> buffer;
    EXPECT_TRUE(source.writeBackToDevice(target, nullptr, &buffer, nullptr));
    EXPECT_EQ(source.readSizes, std::vector<std::uint64_t>{65536});
    EXPECT_EQ(buffer.size(), 65536U);
}

TEST(WriteBackToDevice, OwnBufferHas64KiB) {
    TextDevice source("0123456789");
    TextDevice target;
    EXPECT_TRUE(source.writeBackToDevice(target, nullptr, nullptr, nullptr));
    EXPECT_EQ(source.readSizes, std::vector<std::uint64_t>{65536});
}

TEST(WriteBackToDevice, CancellationIsAskedBeforeEachPieceAndFails) {
    TextDevice source("0123456789", 3);
    TextDevice target;
    std::uint64_t written = 99;
    const CancelAfter cancel(2);
    EXPECT_FALSE(source.writeBackToDevice(target, &written, nullptr, &cancel));
    EXPECT_EQ(target.taken, "012345");
    EXPECT_EQ(written, 6U);
}

TEST(WriteBackToDevice, CancellationAfterTheLastPieceIsTooLate) {
    TextDevice source("0123456789", 3);
    TextDevice target;
    const CancelAfter cancel(4);
    EXPECT_TRUE(source.writeBackToDevice(target, nullptr, nullptr, &cancel));
    EXPECT_EQ(target.taken, "0123456789");
}

TEST(WriteBackToDevice, CancelledBeforeTheFirstPieceReadsNothing) {
    TextDevice source("0123456789");
    TextDevice target;
    const CancelAfter cancel(0);
    EXPECT_FALSE(source.writeBackToDevice(target, nullptr, nullptr, &cancel));
    EXPECT_TRUE(source.readSizes.empty());
}

TEST(WriteBackToDevice, RefusedWriteEndsItAndIsNotCounted) {
    TextDevice source("0123456789", 3);
    TextDevice target;
    target.refuseAtWrite = 2;
    std::uint64_t written = 99;
    EXPECT_FALSE(source.writeBackToDevice(target, &written, nullptr, nullptr));
    EXPECT_EQ(target.writes, 2U);
    EXPECT_EQ(written, 3U);
}

TEST(WriteBackToDevice, RefusalOfTheLastPieceFails) {
    TextDevice source("0123");
    TextDevice target;
    target.refuseAtWrite = 1;
    EXPECT_FALSE(source.writeBackToDevice(target, nullptr, nullptr, nullptr));
}

TEST(WriteBackToDevice, TargetErrorEndsIt) {
    TextDevice source("0123456789", 3);
    TextDevice target;
    target.failAtWrite = 2;
    std::uint64_t written = 99;
    EXPECT_FALSE(source.writeBackToDevice(target, &written, nullptr, nullptr));
    EXPECT_EQ(target.writes, 2U);
    EXPECT_EQ(written, 6U);
}

TEST(WriteBackToDevice, ReadThatGivesNothingBeforeTheEndFails) {
    TextDevice source("0123456789");
    source.giveNothing = true;
    TextDevice target;
    std::uint64_t written = 99;
    EXPECT_FALSE(source.writeBackToDevice(target, &written, nullptr, nullptr));
    EXPECT_EQ(source.readSizes.size(), 1U);
    EXPECT_EQ(target.writes, 0U);
    EXPECT_EQ(written, 0U);
}

TEST(WriteBackToDevice, BytesReadBeforeASourceErrorArePassedOn) {
    TextDevice source("0123");
    source.failAtRead = 1;
    TextDevice target;
    EXPECT_FALSE(source.writeBackToDevice(target, nullptr, nullptr, nullptr));
    EXPECT_EQ(target.taken, "0123");
}

TEST(WriteBackToDevice, FailedTargetFailsEvenWithNothingToGive) {
    TextDevice source;
    TextDevice failedTarget;
    failedTarget.setDeviceError("broken");
    EXPECT_FALSE(source.writeBackToDevice(failedTarget, nullptr, nullptr, nullptr));
}

TEST(WriteBackToDevice, DevicesThatHadFailedBeforeFail) {
    TextDevice good("0123");
    TextDevice failedTarget;
    failedTarget.setDeviceError("broken");
    EXPECT_FALSE(good.writeBackToDevice(failedTarget, nullptr, nullptr, nullptr));

    TextDevice failedSource;
    failedSource.setDeviceError("broken");
    TextDevice target;
    EXPECT_FALSE(failedSource.writeBackToDevice(target, nullptr, nullptr, nullptr));
}

} // namespace
