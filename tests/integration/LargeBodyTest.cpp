#include "integration/ServerTest.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// Bodies for which memory matters. The client lives in the same process, and keeps nothing.

namespace vireotest {
namespace {

constexpr std::uint64_t MiB = 1U << 20U;
constexpr std::uint64_t GiB = 1024 * MiB;
constexpr std::size_t BlockBytes = 65536;

class LargeBody : public ServerTest {
protected:
    /// How much more memory than at the start is in use.
    std::uint64_t growth() const {
        const std::uint64_t now = residentMemoryBytes();
        return now < before_ ? 0 : now - before_;
    }

    /// Notes the growth; called often enough, it finds the peak.
    void sample() { peak_ = std::max(peak_, growth()); }

    /// Answers with a finished body of so many bytes, written at once, and reads the answer.
    ResponseState stateOfFinishedBody(std::uint64_t size) {
        TestServer server([size](TestRequest& request) {
            {
                const std::vector<char> body(static_cast<std::size_t>(size), 'x');
                EXPECT_EQ(request.out().writeBytes(body.data(), body.size()), size);
            }
            request.reply();
        });
        RawClient client = server.connect();
        client.send(get("/"));
        EXPECT_EQ(client.readHead().value("Content-Length"), std::to_string(size));
        client.skip(size);
        const FinishedRequest finished = server.application().finished()[0];
        EXPECT_EQ(finished.deviceError, "");
        EXPECT_EQ(finished.bodySent, size);
        return finished.state;
    }

    std::uint64_t peak_ = 0;

private:
    const std::uint64_t before_ = residentMemoryBytes();
};

TEST_F(LargeBody, FinishedBodyBelow512MiBIsOneBuffer) {
    EXPECT_EQ(stateOfFinishedBody(512 * MiB - 1), ResponseState::Buffered);
}

TEST_F(LargeBody, FinishedBodyOf512MiBIsStreamed) {
    EXPECT_EQ(stateOfFinishedBody(512 * MiB), ResponseState::Streaming);
}

TEST_F(LargeBody, DownloadOfAGibibyteTakesLittleMemory) {
    TestServer server([](TestRequest& request) {
        request.response.contentLength = GiB;
        request.startStream();
        const std::string block(BlockBytes, 'x');
        for (std::uint64_t written = 0; written < GiB; written += block.size()) {
            ASSERT_TRUE(request.write(block));
        }
        request.out().endSending();
    });
    RawClient client = server.connect();
    client.send(get("/"));
    EXPECT_EQ(client.readHead().value("Content-Length"), std::to_string(GiB));
    for (std::uint64_t received = 0; received < GiB; received += MiB) {
        client.skip(MiB);
        sample();
    }
    EXPECT_EQ(server.application().finished()[0].bodySent, GiB);
    EXPECT_LT(peak_, 64 * MiB);
    RecordProperty("peakKiB", std::to_string(peak_ / 1024));
}

TEST_F(LargeBody, UploadOfAGibibyteTakesLittleMemoryWhenTheReaderKeepsUp) {
    constexpr std::uint64_t MaxAhead = 8 * MiB;
    std::atomic<std::uint64_t> readBytes{0};
    TestServer server([&](TestRequest& request) {
        std::vector<char> block(BlockBytes);
        while (!request.feed().atEnd()) {
            readBytes += request.feed().readBytes(block.data(), block.size());
        }
        request.reply();
    });
    RawClient client = server.connect();
    client.send(head("POST", "/", "Content-Length: " + std::to_string(GiB) + "\r\n"));
    const std::string block(BlockBytes, 'x');
    for (std::uint64_t sent = 0; sent < GiB; sent += block.size()) {
        client.send(block);
        sample();
        // On a busy machine the reader would fall behind by chance.
        ASSERT_TRUE(readBytes + MaxAhead > sent || waitUntil([&] { return readBytes + MaxAhead > sent; }));
    }
    EXPECT_EQ(client.readResponse().status, 200);
    EXPECT_EQ(readBytes, GiB);
    EXPECT_LT(peak_, 64 * MiB);
    RecordProperty("peakKiB", std::to_string(peak_ / 1024));
}

TEST_F(LargeBody, UploadThatIsNotReadIsHeldInMemory) {
    constexpr std::uint64_t Size = 64 * MiB;
    Event sent;
    std::atomic<std::uint64_t> readBytes{0};
    TestServer server([&](TestRequest& request) {
        EXPECT_TRUE(sent.wait());
        // The engine has been given everything: nothing held the client back.
        EXPECT_TRUE(waitUntil([&] { return request.readDurationMs() > 0; }));
        sample();
        std::vector<char> block(BlockBytes);
        while (!request.feed().atEnd()) {
            readBytes += request.feed().readBytes(block.data(), block.size());
        }
        request.reply();
    });
    RawClient client = server.connect();
    client.send(head("POST", "/", "Content-Length: " + std::to_string(Size) + "\r\n"));
    const std::string block(BlockBytes, 'x');
    for (std::uint64_t i = 0; i < Size; i += block.size()) {
        client.send(block);
    }
    sent.set();
    EXPECT_EQ(client.readResponse().status, 200);
    EXPECT_EQ(readBytes, Size);
    EXPECT_GT(peak_, Size * 9 / 10);
    EXPECT_LT(peak_, 2 * Size);
}

TEST_F(LargeBody, UploadIsBoundedByItsWindow) {
    constexpr std::uint64_t Size = 64 * MiB;
    const auto byteAt = [](std::uint64_t i) { return static_cast<char>((i * 31 + i / 251) & 0xFFU); };
    Event stuck;
    std::atomic<std::uint64_t> right{0};
    Behaviour behaviour;
    behaviour.handler = [&](TestRequest& request) {
        std::vector<char> block(BlockBytes);
        std::uint64_t at = 0;
        const auto readBlock = [&] {
            const std::uint64_t size = request.feed().readBytes(block.data(), block.size());
            for (std::uint64_t i = 0; i < size; ++i, ++at) {
                right += block[static_cast<std::size_t>(i)] == byteAt(at) ? 1U : 0U;
            }
        };
        readBlock();
        EXPECT_TRUE(stuck.wait());
        while (!request.feed().atEnd()) {
            readBlock();
            sample();
        }
        request.reply();
    };
    ql::http::ServerOptions options;
    options.setWaiting(ql::http::ServerOptions::Waiting::Event);
    TestServer server(behaviour, TestServer::parametersOfTests(), options);
    RawClient client = server.connect();
    std::atomic<std::uint64_t> sent{0};
    std::thread sending([&] {
        client.send(head("POST", "/", "Content-Length: " + std::to_string(Size) + "\r\n"));
        std::string block(BlockBytes, '\0');
        while (sent < Size) {
            for (char& byte : block) {
                byte = byteAt(sent++);
            }
            client.send(block);
        }
    });
    std::uint64_t before = 0;
    EXPECT_TRUE(waitUntil([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return std::exchange(before, sent.load()) == sent.load();
    }));
    EXPECT_LT(sent, Size / 2);
    stuck.set();
    sending.join();
    EXPECT_EQ(client.readResponse().status, 200);
    EXPECT_EQ(right, Size);
    EXPECT_LT(peak_, 17 * MiB);
    RecordProperty("peakKiB", std::to_string(peak_ / 1024));
}

} // namespace
} // namespace vireotest
