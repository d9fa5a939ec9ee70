#include "integration/ServerTest.h"
#include "support/Pattern.h"
#include "support/TestFile.h"

#include <cstdint>
#include <filesystem>
#include <string>

// Answers whose body is a part of a file.

namespace vireotest {
namespace {

using testing::HasSubstr;

constexpr std::uint64_t FileBytes = 1000000;
constexpr std::uint64_t Offset = 70001;
constexpr std::uint64_t PartBytes = 500000;

class FileAnswer : public ServerTest {
protected:
    TestServer serve(std::uint64_t offset, std::uint64_t size) {
        return TestServer([this, offset, size](TestRequest& request) {
            request.out().releaseFile(openForReading(path_), offset, size);
        });
    }

    void expectClosed() const {
        EXPECT_TRUE(waitUntil([this] { return !isOpen(path_); }));
    }

    const std::string content_ = pattern(FileBytes);
    const TestDirectory directory_;
    const std::filesystem::path path_ = directory_.write("file", content_);
};

TEST_F(FileAnswer, PartBeginsAtItsOffset) {
    TestServer server = serve(Offset, PartBytes);
    RawClient client = server.connect();
    for (int i = 0; i < 3; ++i) {
        const RawResponse response = client.exchange(get("/"));
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.value("Content-Length"), std::to_string(PartBytes));
        EXPECT_TRUE(response.body == content_.substr(Offset, PartBytes));
    }
    expectClosed();
}

TEST_F(FileAnswer, HeadTellsTheLengthAlone) {
    TestServer server = serve(Offset, PartBytes);
    RawClient client = server.connect();
    client.send(head("HEAD", "/"));
    EXPECT_EQ(client.readHead().value("Content-Length"), std::to_string(PartBytes));
    EXPECT_EQ(client.exchange(get("/")).body.size(), PartBytes);
    expectClosed();
}

TEST_F(FileAnswer, PartMayBeEmpty) {
    TestServer server = serve(FileBytes, 0);
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).value("Content-Length"), "0");
    EXPECT_EQ(client.exchange(get("/")).status, 200);
    expectClosed();
}

TEST_F(FileAnswer, FileIsClosedWhenTheClientLeavesInTheMiddle) {
    TestServer server = serve(0, FileBytes);
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/"));
    client.read(1000);
    client.reset();
    server.application().finished();
    expectClosed();
}

TEST_F(FileAnswer, FileOfAnotherAnswerIsClosed) {
    TestServer server([this](TestRequest& request) {
        request.write("a body");
        request.out().releaseFile(openForReading(path_), 0, FileBytes);
    });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).status, 500);
    EXPECT_EQ(server.application().finished().front().deviceError, "a file beside another body");
    expectClosed();
    EXPECT_THAT(log_.texts(qlLogType::Failure),
                testing::Contains(HasSubstr("releaseFile() is refused: the response has a body already")));
}

TEST_F(FileAnswer, SecondFileIsClosedAndNamed) {
    TestServer server([this](TestRequest& request) {
        request.out().releaseFile(openForReading(path_), 0, FileBytes);
        request.out().releaseFile(openForReading(path_), 0, FileBytes);
    });
    RawClient client = server.connect();
    client.send(get("/", "Connection: close\r\n"));
    client.readToEnd();
    server.application().finished();
    expectClosed();
    EXPECT_THAT(log_.texts(qlLogType::Failure), testing::Contains(HasSubstr("releaseFile() is refused")));
}

TEST_F(FileAnswer, FileOfAClientThatHasGoneIsClosed) {
    answerAfterTheClient([this](TestRequest& request) {
        request.out().releaseFile(openForReading(path_), 0, FileBytes);
        EXPECT_FALSE(isOpen(path_));
    });
}

TEST_F(FileAnswer, FileIsClosedByTheCompletionOfARequestThatLivesOn) {
    Event mayEnd;
    TestServer server([&](TestRequest& request) {
        request.out().releaseFile(openForReading(path_), 0, FileBytes);
        EXPECT_TRUE(mayEnd.wait());
    });
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/"));
    client.read(1000);
    EXPECT_TRUE(isOpen(path_));
    client.reset();
    server.stop();
    expectClosed();
    mayEnd.set();
}

TEST_F(FileAnswer, WriteAfterItIsRefused) {
    TestServer server([this](TestRequest& request) {
        request.out().releaseFile(openForReading(path_), 0, 10);
        EXPECT_FALSE(request.write("more"));
    });
    EXPECT_EQ(server.connect().exchange(get("/")).body, content_.substr(0, 10));
}

} // namespace
} // namespace vireotest
