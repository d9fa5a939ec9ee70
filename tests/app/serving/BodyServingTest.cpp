#include "support/Event.h"
#include "support/Pattern.h"
#include "support/RawClient.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// Bodies over the wire, in all ways in which they come and do not come.

namespace {

using testing::HasSubstr;
using vireo::App;
using vireo::Request;
using vireo::Response;
using vireo::TestClient;
using vireo::TestRequest;
using vireotest::contentOf;
using vireotest::pattern;
using vireotest::post;
using vireotest::RawClient;
using vireotest::TestDirectory;
using vireotest::waitUntil;

constexpr std::size_t WindowBytes = 1048576;
/// What two windows of the transport and the server's own may hold.
constexpr std::size_t BeyondTheWindow = WindowBytes + 262144;

std::uint16_t portOf(const TestClient& client) {
    const std::string url = client.url();
    return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
}

class BodyServing : public testing::Test {
protected:
    BodyServing() {
        app_.post("/echo", [](Request& request, Response& response) { response.text(request.body().text()); });
        app_.post("/pieces", [](Request& request, Response& response) {
            std::string all;
            while (const auto piece = request.body().read()) {
                all += *piece;
            }
            response.text(all);
        });
        app_.post("/ten", [](Request& request, Response& response) { response.text(request.body().text()); })
            .maxBody(10);
        app_.post("/keep", [this](Request& request, Response& response) {
            ++begun_;
            vireo::NewFile file = request.newFile(directory_.path().string());
            request.body().saveTo(file);
            file.keepAs("kept-" + std::to_string(kept_++));
            response.text("kept\n");
        });
        app_.put("/named/{name}", [this](Request& request, Response& response) {
            vireo::NewFile file = request.newFile(directory_.path().string());
            request.body().saveTo(file);
            file.keepAs(request.path("name"));
            response.empty(201);
        });
    }

    TestClient& start() {
        client_ = std::make_unique<TestClient>(app_);
        client_->setPatience(std::chrono::seconds(60));
        return *client_;
    }

    const vireotest::TestLog log_;
    const TestDirectory directory_;
    std::atomic<int> begun_{0};
    std::atomic<int> kept_{0};
    App app_;
    std::unique_ptr<TestClient> client_;
};

TEST_F(BodyServing, BodyThatIsCutAnywhereIsTheWhole) {
    start();
    const std::string content = pattern(60);
    for (const std::string_view target : {"/echo", "/pieces"}) {
        const std::string request = post(target, content);
        for (std::size_t cut = request.size() - content.size(); cut < request.size(); ++cut) {
            RawClient client(portOf(*client_));
            client.send(std::string_view(request).substr(0, cut));
            client.send(std::string_view(request).substr(cut));
            ASSERT_EQ(client.readResponse().body, content) << cut;
        }
    }
}

TEST_F(BodyServing, BodyBeyondTheWindowIsReadWhileItComes) {
    const std::string content = pattern(5000000);
    TestClient& client = start();
    EXPECT_TRUE(client.post("/echo", content).body() == content);
    EXPECT_TRUE(client.post("/pieces", content).body() == content);
    EXPECT_TRUE(client.send(TestRequest("POST", "/pieces").body(content).chunked(10000)).body() == content);
    EXPECT_TRUE(client.send(TestRequest("POST", "/echo").body(content).chunked(70000)).body() == content);
}

TEST_F(BodyServing, NameOfAClientsChoiceIsKeptOrRefused) {
    TestClient& client = start();
    EXPECT_EQ(client.put("/named/notes.txt", "one").status(), 201);
    for (const char* const target : {"/named/a%2Fb", "/named/%2Fetc", "/named/a%5Cb", "/named/.hidden"}) {
        EXPECT_EQ(client.put(target, "two").status(), 400) << target;
    }
    EXPECT_EQ(directory_.entries(), 1U);
    EXPECT_TRUE(log_.texts(qlLogType::Failure, "/named/").empty());
}

TEST_F(BodyServing, LimitHoldsToTheByte) {
    TestClient& client = start();
    EXPECT_EQ(client.post("/ten", "0123456789").body(), "0123456789");
    EXPECT_EQ(client.post("/ten", "0123456789a").status(), 413);
    EXPECT_EQ(client.send(TestRequest("POST", "/ten").body("0123456789").chunked(3)).body(), "0123456789");
    const auto tooLong = client.send(TestRequest("POST", "/ten").body("0123456789a").chunked(3));
    EXPECT_EQ(tooLong.status(), 413);
    EXPECT_THAT(tooLong.body(), HasSubstr("10 bytes"));
    EXPECT_EQ(client.post("/ten", "again").body(), "again");
}

TEST_F(BodyServing, SmallUploadThatBreaksOffAnywhereLeavesNothing) {
    const std::string content = pattern(60);
    // "7\r\n" to "\r\n" eight times, once with 4 bytes, and "0\r\n\r\n".
    constexpr std::size_t ChunkedBytes = 8 * 12 + 9 + 5;
    TestClient& client = start();
    for (std::size_t bytes = 0; bytes < content.size(); ++bytes) {
        client.begin(TestRequest("POST", "/keep").body(content), bytes);
    }
    for (std::size_t bytes = 0; bytes < ChunkedBytes; ++bytes) {
        client.begin(TestRequest("POST", "/keep").body(content).chunked(7), bytes);
    }
    client.abort();
    client_.reset();
    EXPECT_EQ(kept_, 0);
    EXPECT_EQ(directory_.entries(), 0U);
}

TEST_F(BodyServing, LargeUploadThatBreaksOffAnywhereLeavesNothing) {
    constexpr std::size_t Points = 200;
    const std::string content = pattern(2 * WindowBytes);
    TestClient& client = start();
    int beyond = 0;
    for (std::size_t point = 0; point < Points; ++point) {
        const std::size_t bytes = content.size() / Points * point + point % 7;
        client.begin(TestRequest("POST", "/keep").body(content), bytes);
        beyond += bytes > BeyondTheWindow ? 1 : 0;
    }
    // Those are in the handler's hands, and write to their files.
    EXPECT_TRUE(waitUntil([&] { return begun_ >= beyond; })) << begun_ << " of " << beyond;
    client.abort();
    client_.reset();
    EXPECT_EQ(kept_, 0);
    EXPECT_EQ(directory_.entries(), 0U);
}

TEST_F(BodyServing, UploadThatComesIsKept) {
    const std::string content = pattern(3000000);
    EXPECT_EQ(start().post("/keep", content).body(), "kept\n");
    EXPECT_TRUE(contentOf(directory_.path() / "kept-0") == content);
    EXPECT_EQ(directory_.entries(), 1U);
}

TEST_F(BodyServing, ServerThatStopsLeavesNothing) {
    TestClient& client = start();
    client.begin(TestRequest("POST", "/keep").body(pattern(2 * WindowBytes)), BeyondTheWindow + 65536);
    EXPECT_TRUE(waitUntil([&] { return begun_ == 1; }));
    app_.stop();
    EXPECT_EQ(kept_, 0);
    EXPECT_EQ(directory_.entries(), 0U);
}

} // namespace
