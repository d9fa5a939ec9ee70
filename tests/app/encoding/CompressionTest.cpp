#include "vireo/app/Compression.h"

#include "app/encoding/Decoded.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

using vireo::App;
using vireo::Output;
using vireo::Request;
using vireo::Response;
using vireo::TestClient;
using vireo::TestRequest;
using vireo::TestResponse;

namespace {

const std::string longText(5000, 'a');

TestResponse ask(TestClient& client, const std::string& accept, const std::string& method = "GET",
                 const std::string& target = "/text") {
    return client.send(TestRequest(method, target).header("Accept-Encoding", accept));
}

void serveText(App& app) {
    app.use(vireo::compression());
    app.get("/text", [](Request&, Response& response) {
        response.header("ETag", "\"1\"");
        response.text(longText);
    });
}

} // namespace

TEST(Compression, IsForThoseWhoTakeIt) {
    App app;
    serveText(app);
    TestClient client(app);
    const TestResponse response = ask(client, "gzip");
    EXPECT_EQ(response.header("Content-Encoding"), "gzip");
    EXPECT_EQ(response.header("Vary"), "Accept-Encoding");
    EXPECT_EQ(response.header("ETag"), "W/\"1\"");
    EXPECT_EQ(encodingtest::decodedGzip(response.body()), longText);
    for (const char* accept : {"identity", "gzip;q=0", "zstd", "gzip;q=0.5, identity"}) {
        const TestResponse plain = ask(client, accept);
        EXPECT_EQ(plain.body(), longText) << accept;
        EXPECT_EQ(plain.header("Content-Encoding"), "") << accept;
        EXPECT_EQ(plain.header("Vary"), "Accept-Encoding") << accept;
    }
    EXPECT_EQ(client.get("/text").body(), longText) << "who doesn't say anything";
}

TEST(Compression, GoesByTheClientsPreference) {
    App app;
    serveText(app);
    TestClient client(app);
    EXPECT_EQ(ask(client, "br;q=0.5, gzip").header("Content-Encoding"), "gzip");
    EXPECT_EQ(ask(client, "gzip;q=0.5").header("Content-Encoding"), "gzip");
#ifdef HAS_BROTLI_DECODER
    const TestResponse response = ask(client, "gzip, deflate, br");
    EXPECT_EQ(response.header("Content-Encoding"), "br");
    EXPECT_EQ(encodingtest::decodedBrotli(response.body()), longText);
#endif
}

TEST(Compression, HeadTellsWhatGetWould) {
    App app;
    serveText(app);
    TestClient client(app);
    const TestResponse head = ask(client, "gzip", "HEAD");
    EXPECT_EQ(head.header("Content-Encoding"), "gzip");
    EXPECT_EQ(head.header("Content-Length"), std::to_string(ask(client, "gzip").body().size()));
}

TEST(Compression, StreamsAreWholeAndSayNoLength) {
    App app;
    app.use(vireo::compression());
    app.get("/stream", [](Request&, Response& response) {
        response.type("text/plain");
        response.stream([](Output& out) {
            for (int i = 0; i < 5; ++i) {
                out << longText;
                out.flush();
            }
        });
    });
    app.get("/known", [](Request&, Response& response) {
        response.type("text/plain");
        response.stream(longText.size(), [](Output& out) { out << longText; });
    });
    TestClient client(app);
    const TestResponse stream = ask(client, "gzip", "GET", "/stream");
    EXPECT_EQ(stream.header("Content-Encoding"), "gzip");
    bool isWhole = false;
    EXPECT_EQ(encodingtest::decodedGzip(stream.body(), &isWhole), longText + longText + longText + longText + longText);
    EXPECT_TRUE(isWhole);
    const TestResponse known = ask(client, "gzip", "GET", "/known");
    EXPECT_EQ(known.header("Content-Encoding"), "gzip");
    EXPECT_EQ(encodingtest::decodedGzip(known.body()), longText);
}

TEST(Compression, LeavesEventStreamsAlone) {
    App app;
    vireo::EventChannel channel;
    app.use(vireo::compression());
    app.get("/events", [&channel](Request&, Response& response) { response.events(channel); });
    TestClient client(app);
    EXPECT_EQ(ask(client, "gzip", "HEAD", "/events").header("Content-Encoding"), "");
}

TEST(Compression, ErrorsAreAnswersToo) {
    App app;
    app.use(vireo::compression());
    app.get("/error", [](Request&, Response&) { throw vireo::HttpError(404, longText); });
    TestClient client(app);
    const TestResponse response = ask(client, "gzip", "GET", "/error");
    EXPECT_EQ(response.status(), 404);
    EXPECT_EQ(encodingtest::decodedGzip(response.body()), longText + "\n");
}
