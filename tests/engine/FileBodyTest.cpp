#include "engine/FileBody.h"

#include "engine/EngineConnection.h"
#include "engine/EngineResponse.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "streams/ResponseWait.h"
#include "support/FakeRequest.h"
#include "support/Pattern.h"
#include "support/RawClient.h"
#include "support/TestFile.h"
#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <microhttpd.h>

namespace {

using ql::impl::EngineConnection;
using ql::impl::EngineResponse;
using ql::impl::FileBody;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::isOpen;
using vireotest::openForReading;
using vireotest::pattern;
using vireotest::RawClient;
using vireotest::TestDirectory;

constexpr std::size_t FileBytes = 1000000;

class FileBodyTest : public testing::Test {
protected:
    FileBody open(std::uint64_t offset, std::uint64_t size) const { return {openForReading(path_), offset, size}; }

    const TestDirectory directory_;
    const std::filesystem::path path_ = directory_.write("file", pattern(FileBytes));
};

TEST_F(FileBodyTest, BytesAreThoseOfThePart) {
    const FileBody body = open(1000, 100);
    std::array<char, 200> buffer{};
    int error = -1;
    EXPECT_EQ(body.read(10, buffer.data(), 20, error), 20U);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(std::string(buffer.data(), 20), pattern(20, 1010));
    EXPECT_EQ(body.read(90, buffer.data(), buffer.size(), error), 10U);
}

TEST_F(FileBodyTest, EndOfTheFileIsNoError) {
    const FileBody body = open(FileBytes - 10, 100);
    std::array<char, 200> buffer{};
    int error = -1;
    EXPECT_EQ(body.read(0, buffer.data(), buffer.size(), error), 10U);
    EXPECT_EQ(body.read(10, buffer.data(), buffer.size(), error), 0U);
    EXPECT_EQ(error, 0);
}

TEST_F(FileBodyTest, FileIsItsOwnersAlone) {
    {
        FileBody body = open(0, 1);
        const FileBody other = std::move(body);
        EXPECT_TRUE(isOpen(path_));
        body = open(0, 2);
        EXPECT_EQ(other.size(), 1U);
        EXPECT_EQ(body.size(), 2U);
    }
    EXPECT_FALSE(isOpen(path_));
}

/// Notes how much each block has.
class BlockWait : public ql::impl::ResponseWait {
public:
    void progress() override {}
    void wait(ql::HttpBaseRequest& /*request*/, std::int64_t /*nowMs*/) override {}
    void gave(std::uint64_t bytes) override { blocks.push_back(bytes); }

    std::vector<std::uint64_t> blocks;
};

/// An engine that answers all with a file.
class FileEngine {
public:
    FileEngine(std::filesystem::path path, bool isEncrypted) : path_(std::move(path)), isEncrypted_(isEncrypted) {
        ql::impl::RequestAccess::state(request_).wait = wait_;
        daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD, 0, nullptr, nullptr, &answer, this, MHD_OPTION_END);
        if (daemon_ == nullptr) {
            throw std::runtime_error("no engine");
        }
    }
    ~FileEngine() { stop(); }
    FileEngine(const FileEngine&) = delete;
    FileEngine& operator=(const FileEngine&) = delete;

    std::uint16_t port() const { return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port; }
    /// @return the blocks that were read.
    std::vector<std::uint64_t> stop() {
        if (MHD_Daemon* const daemon = std::exchange(daemon_, nullptr)) {
            MHD_stop_daemon(daemon);
        }
        return wait_->blocks;
    }

private:
    static MHD_Result answer(void* closure, MHD_Connection* connection, const char* /*url*/, const char* /*method*/,
                             const char* /*version*/, const char* /*data*/, std::size_t* /*size*/, void** slot) {
        auto& engine = *static_cast<FileEngine*>(closure);
        if (*slot == nullptr) {
            *slot = closure;
            return MHD_YES;
        }
        EngineResponse response = EngineResponse::OfFile(
            engine.request_, FileBody(openForReading(engine.path_), 1000, FileBytes - 1000), engine.isEncrypted_);
        return response.queue(EngineConnection(connection), 200) == ql::impl::Verdict::Continue ? MHD_YES : MHD_NO;
    }

    const std::filesystem::path path_;
    const bool isEncrypted_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    const std::shared_ptr<BlockWait> wait_ = std::make_shared<BlockWait>();
    MHD_Daemon* daemon_ = nullptr;
};

TEST_F(FileBodyTest, EncryptedFileIsReadInBlocksOfSixtyFourKilobytes) {
    FileEngine engine(path_, true);
    RawClient client(engine.port());
    EXPECT_TRUE(client.exchange(vireotest::get("/")).body == pattern(FileBytes).substr(1000));
    client.close();
    const std::vector<std::uint64_t> blocks = engine.stop();
    EXPECT_EQ(std::accumulate(blocks.begin(), blocks.end(), std::uint64_t{0}), FileBytes - 1000);
    EXPECT_LE(blocks.size(), FileBytes / 65536 + 1);
    EXPECT_FALSE(isOpen(path_));
}

TEST_F(FileBodyTest, ConnectionOfAFileThatHasBecomeShorterEndsBehindWhatThereIs) {
    const vireotest::TestLog log;
    std::filesystem::resize_file(path_, FileBytes - 1);
    FileEngine engine(path_, true);
    RawClient client(engine.port());
    client.send(vireotest::get("/"));
    EXPECT_THAT(client.readUntil("\r\n\r\n"),
                testing::HasSubstr("Content-Length: " + std::to_string(FileBytes - 1000)));
    EXPECT_TRUE(client.readToEnd() == pattern(FileBytes - 1).substr(1000));
    engine.stop();
    EXPECT_FALSE(isOpen(path_));
    EXPECT_EQ(log.texts(qlLogType::Failure, "has become shorter : the answer breaks off after 998999 bytes").size(),
              1U);
}

#ifdef __linux__
TEST_F(FileBodyTest, FileIsSentByTheSystemWithoutTls) {
    FileEngine engine(path_, false);
    RawClient client(engine.port());
    EXPECT_TRUE(client.exchange(vireotest::get("/")).body == pattern(FileBytes).substr(1000));
    client.close();
    EXPECT_TRUE(engine.stop().empty());
    EXPECT_FALSE(isOpen(path_));
}
#endif

} // namespace
