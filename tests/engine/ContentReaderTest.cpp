#include "engine/ContentReader.h"

#include "streams/PollingWait.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/Pattern.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlSystemUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace {

using ql::impl::PollingWait;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::pattern;

constexpr ssize_t EndOfStream = -1;
constexpr ssize_t EndWithError = -2;

class ContentReaderTest : public testing::Test {
protected:
    ContentReaderTest() {
        request_.handleOnThisThread();
        polling().progress();
    }
    ~ContentReaderTest() override { polling().progress(); }

    static PollingWait& polling() { return PollingWait::ofThisThread(); }

    /// Makes this thread's polling slow, so that progress shows.
    void starve() {
        polling().takeDueSleepMs(qlSystemUtils::GetTimeBaseMs());
        clock_.advanceMs(100);
    }

    /// True when polling is slow; afterwards it is.
    static bool isStarving() { return polling().takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()) != 0; }

    void write(const std::string& bytes) { out_.writeBytes(bytes.data(), bytes.size()); }
    ssize_t read(std::size_t max) { return ql::impl::readContent(&request_, 0, buffer_.data(), max); }

    FakeClock clock_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    ql::HttpResponseDevice& out_ = request_.editInternalResponseDevice();
    std::array<char, 131072> buffer_{};
};

TEST_F(ContentReaderTest, MissingRequestEndsWithError) {
    starve();
    EXPECT_EQ(ql::impl::readContent(nullptr, 0, buffer_.data(), 10), EndWithError);
    EXPECT_FALSE(isStarving());
}

TEST_F(ContentReaderTest, DeviceErrorEndsWithError) {
    write(pattern(65536));
    out_.lock("test");
    out_.setConnectionLost("ClientAbort");
    out_.unlock();
    starve();
    EXPECT_EQ(read(10), EndWithError);
    EXPECT_FALSE(isStarving());
}

TEST_F(ContentReaderTest, GivesWhatItCopied) {
    write(pattern(65536));
    starve();
    EXPECT_EQ(read(100), 100);
    EXPECT_EQ(std::string(buffer_.data(), 100), pattern(100));
    EXPECT_FALSE(isStarving());
}

TEST_F(ContentReaderTest, GivesLessThanAskedForWhenThereIsLess) {
    write(pattern(65536));
    EXPECT_EQ(read(65537), 65536);
}

TEST_F(ContentReaderTest, NothingThereIsZeroAndStartsToWait) {
    EXPECT_EQ(read(10), 0);
    clock_.advanceMs(100);
    EXPECT_TRUE(isStarving());
}

TEST_F(ContentReaderTest, StarvingReadSleeps) {
    starve();
    polling().takeDueSleepMs(qlSystemUtils::GetTimeBaseMs());
    clock_.advanceMs(30);
    EXPECT_EQ(read(10), 0);
    // The read took the 15 ms that were due, and began a new period.
    EXPECT_EQ(polling().takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 45);
}

TEST_F(ContentReaderTest, EndedBodyEndsTheStream) {
    out_.endSending();
    starve();
    EXPECT_EQ(read(10), EndOfStream);
    EXPECT_FALSE(isStarving());
}

TEST_F(ContentReaderTest, RestOfAnEndedBodyComesBeforeTheEnd) {
    write("rest");
    out_.endSending();
    EXPECT_EQ(read(10), 4);
    EXPECT_EQ(std::string(buffer_.data(), 4), "rest");
    EXPECT_EQ(read(10), EndOfStream);
    EXPECT_EQ(read(10), EndOfStream);
}

TEST_F(ContentReaderTest, LostConnectionAfterTheEndIsAnError) {
    out_.endSending();
    out_.lock("test");
    out_.setConnectionLost("WriteError");
    out_.unlock();
    EXPECT_EQ(read(10), EndWithError);
}

TEST_F(ContentReaderTest, PositionPlaysNoPart) {
    write(pattern(65536));
    EXPECT_EQ(ql::impl::readContent(&request_, 12345, buffer_.data(), 3), 3);
    EXPECT_EQ(std::string(buffer_.data(), 3), pattern(3));
}

// ---- Of a file ----

class FileReaderTest : public ContentReaderTest {
protected:
    /// A part of the file that begins at its third byte.
    static constexpr std::uint64_t Offset = 2;

    ssize_t readFile(std::uint64_t position, std::size_t max) {
        return ql::impl::readFileContent(content_.get(), position, buffer_.data(), max);
    }

    const vireotest::TestDirectory directory_;
    const std::filesystem::path path_ = directory_.write("file", pattern(1000));
    std::unique_ptr<ql::impl::FileContent> content_ = std::make_unique<ql::impl::FileContent>(
        ql::impl::FileContent{request_, ql::impl::FileBody(vireotest::openForReading(path_), Offset, 900)});
};

TEST_F(FileReaderTest, BytesComeFromTheirPositionInThePart) {
    starve();
    EXPECT_EQ(readFile(100, 50), 50);
    EXPECT_EQ(std::string(buffer_.data(), 50), pattern(50, Offset + 100));
    EXPECT_FALSE(isStarving());
}

TEST_F(FileReaderTest, NothingIsReadBehindThePart) {
    EXPECT_EQ(readFile(890, 50), 10);
}

TEST_F(FileReaderTest, FileThatHasBecomeShorterEndsWithError) {
    std::filesystem::resize_file(path_, 500);
    EXPECT_EQ(readFile(490, 50), 8);
    starve();
    const vireotest::TestLog log;
    EXPECT_EQ(readFile(498, 50), EndWithError);
    EXPECT_FALSE(isStarving());
    EXPECT_THAT(log.texts(qlLogType::Failure), testing::ElementsAre(testing::EndsWith(
                                                   "' has become shorter : the answer breaks off after 498 bytes")));
}

#ifdef __linux__
TEST_F(FileReaderTest, FileThatCannotBeReadEndsWithErrorAndTellsWhy) {
    // A directory opens, and cannot be read.
    content_->body = ql::impl::FileBody(vireotest::openForReading(directory_.path()), 0, 900);
    const vireotest::TestLog log;
    EXPECT_EQ(readFile(10, 50), EndWithError);
    EXPECT_THAT(log.texts(qlLogType::Failure),
                testing::ElementsAre(testing::HasSubstr("cannot be read : " + ql::SystemError(EISDIR).toString())));
}
#endif

TEST_F(FileReaderTest, FileIsClosedWhenItIsFreed) {
    ASSERT_TRUE(vireotest::isOpen(path_));
    ql::impl::freeFileContent(content_.release());
    EXPECT_FALSE(vireotest::isOpen(path_));
}

} // namespace
