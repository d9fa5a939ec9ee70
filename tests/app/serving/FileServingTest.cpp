#include "support/Pattern.h"
#include "support/RawClient.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/Compression.h"
#include "vireo/app/TestClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// Files over the wire.

namespace {

using testing::HasSubstr;
using vireo::App;
using vireo::Request;
using vireo::Response;
using vireo::TestClient;
using vireo::TestRequest;
using vireo::TestResponse;
using vireotest::isOpen;
using vireotest::pattern;
using vireotest::RawClient;
using vireotest::RawResponse;
using vireotest::TestDirectory;
using vireotest::waitUntil;

class FileServing : public testing::Test {
protected:
    FileServing() {
        // Nobody may write it any more, so that its tag is a strong one.
        last_write_time(large_, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
        app_.files("/files", directory_.path().string());
        app_.files("/quick", directory_.path().string()).quick();
        app_.get("/one", [this](Request&, Response& response) { response.file(large_.string()); });
        app_.get("/download", [this](Request&, Response& response) { response.download(large_.string(), "a b.bin"); });
        app_.get("/hello", [](Request&, Response& response) { response.text("hello"); });
    }

    const std::string content_ = pattern(3000000);
    const vireotest::TestLog log_;
    const TestDirectory directory_;
    const std::filesystem::path large_ = directory_.write("large.bin", content_);
    App app_;
};

TEST_F(FileServing, LargeFileIsSentWholeAndInParts) {
    TestClient client(app_);
    for (const char* const target : {"/files/large.bin", "/quick/large.bin", "/one"}) {
        const TestResponse whole = client.get(target);
        EXPECT_EQ(whole.status(), 200);
        EXPECT_EQ(whole.header("Content-Length"), "3000000");
        EXPECT_TRUE(whole.body() == content_) << target;
        const TestResponse part = client.send(TestRequest("GET", target).header("Range", "bytes=100000-2100000"));
        EXPECT_EQ(part.status(), 206);
        EXPECT_EQ(part.header("Content-Length"), "2000001");
        EXPECT_TRUE(part.body() == content_.substr(100000, 2000001)) << target;
        const TestResponse head = client.head(target);
        EXPECT_EQ(head.header("Content-Length"), "3000000");
        EXPECT_EQ(head.header("ETag"), whole.header("ETag"));
        const TestResponse same = client.send(TestRequest("GET", target).header("If-None-Match", whole.header("ETag")));
        EXPECT_EQ(same.status(), 304);
        EXPECT_EQ(same.body(), "");
    }
    EXPECT_TRUE(waitUntil([this] { return !isOpen(large_); }));
}

TEST_F(FileServing, SmallFileIsSentToo) {
    directory_.write("small.txt", "small");
    directory_.write("empty.txt", "");
    TestClient client(app_);
    EXPECT_EQ(client.get("/files/small.txt").body(), "small");
    EXPECT_EQ(client.head("/files/small.txt").header("Content-Length"), "5");
    EXPECT_EQ(client.get("/files/empty.txt").header("Content-Length"), "0");
    EXPECT_EQ(client.get("/files/small.txt").header("Content-Type"), "text/plain; charset=utf-8");
}

TEST_F(FileServing, NotModifiedIsTheHeadAlone) {
    directory_.write("page.html", std::string(5000, 'x'));
    last_write_time(directory_.path() / "page.html",
                    std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    TestClient client(app_);
    const TestResponse whole = client.get("/files/page.html");
    const TestResponse same =
        client.send(TestRequest("GET", "/files/page.html").header("If-None-Match", whole.header("ETag")));
    EXPECT_EQ(same.status(), 304);
    for (const char* const name : {"ETag", "Last-Modified", "Cache-Control", "Content-Length"}) {
        EXPECT_EQ(same.header(name), whole.header(name)) << name;
    }
    EXPECT_EQ(same.header("Content-Type"), "");
    EXPECT_EQ(same.header("Content-Encoding"), "");
}

TEST_F(FileServing, NotModifiedThatAHookMakesAnotherStatusIsTheFile) {
    app_.use([](Request&, Response& response, vireo::Next& next) {
        response.beforeSend([](Response& sent) { sent.status(200); });
        next();
    });
    directory_.write("empty", "");
    directory_.write("small", "small");
    TestClient client(app_);
    const auto get = [&client](const char* name) {
        return client.send(TestRequest("GET", std::string("/files/") + name).header("If-None-Match", "*"));
    };
    EXPECT_EQ(get("empty").header("Content-Length"), "0");
    EXPECT_EQ(get("empty").body(), "");
    EXPECT_EQ(get("small").body(), "small");
    EXPECT_TRUE(get("large.bin").body() == content_);
}

TEST_F(FileServing, NotModifiedIsOfWhatTheClientGot) {
    App app;
    app.use(vireo::compression());
    app.files("/files", directory_.path().string());
    for (const char* const name : {"page.html", "sibling.html", "sibling.html.gz"}) {
        const auto path = directory_.write(name, std::string(5000, 'x'));
        last_write_time(path, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    }
    last_write_time(directory_.path() / "sibling.html",
                    std::filesystem::file_time_type::clock::now() - std::chrono::hours(2));
    TestClient client(app);
    for (const char* const target : {"/files/page.html", "/files/sibling.html"}) {
        for (const char* const encodings : {"gzip", "identity"}) {
            const TestResponse whole = client.send(TestRequest("GET", target).header("Accept-Encoding", encodings));
            const TestResponse same = client.send(TestRequest("GET", target)
                                                      .header("Accept-Encoding", encodings)
                                                      .header("If-None-Match", whole.header("ETag")));
            EXPECT_EQ(same.status(), 304);
            EXPECT_EQ(same.header("ETag"), whole.header("ETag")) << target << " " << encodings;
            EXPECT_EQ(same.header("Vary"), "Accept-Encoding") << target << " " << encodings;
            EXPECT_TRUE(same.header("Content-Length").empty() ||
                        same.header("Content-Length") == whole.header("Content-Length"))
                << same.header("Content-Length");
            EXPECT_EQ(same.header("Content-Type"), "");
            EXPECT_EQ(same.header("Content-Encoding"), "");
        }
    }
}

TEST_F(FileServing, DownloadIsNamed) {
    TestClient client(app_);
    EXPECT_THAT(client.get("/download").header("Content-Disposition"), HasSubstr("filename*=UTF-8''a%20b.bin"));
}

TEST_F(FileServing, WhatIsWrongIsAnAnswerOfItsOwn) {
    TestClient client(app_);
    EXPECT_EQ(client.get("/files/none").status(), 404);
    EXPECT_EQ(client.get("/files/../etc/passwd").status(), 400);
    EXPECT_EQ(client.post("/files/large.bin").status(), 405);
    const TestResponse none = client.send(TestRequest("GET", "/one").header("Range", "bytes=3000000-"));
    EXPECT_EQ(none.status(), 416);
    EXPECT_EQ(none.header("Content-Range"), "bytes */3000000");
    EXPECT_EQ(client.send(TestRequest("GET", "/one").header("If-Match", "\"x\"")).status(), 412);
    EXPECT_EQ(client.get("/hello").body(), "hello");
}

TEST_F(FileServing, OtherSpellingsLeadPastNoGroupsRules) {
    directory_.write("admin/x", "secret");
    App app;
    app.files("/", directory_.path().string());
    app.group("/admin").before([](Request&, Response& response) { response.error(401); });
    TestClient client(app);
    for (const char* const target : {"/admin/x", "/%61dmin/x", "/admin/X", "/admin/none"}) {
        EXPECT_EQ(client.get(target).status(), 401) << target;
    }
    for (const char* const target : {"/Admin/x", "/ADMIN/x", "/%41dmin/x", "/adm%49n/X"}) {
        EXPECT_EQ(client.get(target).status(), 404) << target;
    }
}

TEST_F(FileServing, MissingFileIsAnsweredByWhatTheScopeHasForThat) {
    directory_.write(".hidden", "x");
    directory_.write("sub/file", "x");
    App app;
    app.notFound([](Request& request, Response& response) { response.html("<p>no " + request.path() + "</p>"); });
    app.files("/", directory_.path().string());
    vireo::Group quick = app.group("/quick");
    quick.notFound([](Request&, Response& response) { response.error(410, "gone"); });
    quick.files("/files", directory_.path().string()).quick();
    TestClient client(app);
    for (const char* const target : {"/none", "/.hidden", "/none/", "/sub/", "/large.bin/x"}) {
        const TestResponse answer = client.get(target);
        EXPECT_EQ(answer.status(), 404) << target;
        EXPECT_EQ(answer.header("Content-Type"), "text/html; charset=utf-8") << target;
        EXPECT_EQ(answer.body(), "<p>no " + std::string(target) + "</p>");
    }
    EXPECT_EQ(client.head("/none").status(), 404);
    EXPECT_EQ(client.head("/none").header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(client.get("/quick/files/none").status(), 410);
    EXPECT_EQ(client.get("/quick/files/sub/file").body(), "x");
}

TEST_F(FileServing, MissingFileIsAnsweredAsIfTheDirectoryWereNotThere) {
    directory_.write("api/page", "page");
    App app;
    app.files("/", directory_.path().string(), vireo::FileOptions().fallback("api/page"));
    vireo::Group api = app.group("/api");
    api.before([](Request& request, Response& response) {
        if (request.header("X-Key").empty()) {
            response.error(401);
        }
    });
    api.get("/notes", [](Request&, Response& response) { response.text("notes"); });
    api.notFound([](Request&, Response& response) { response.text("no such note"); });
    TestClient client(app);
    const auto asked = [&client](const char* method, const char* target) {
        return client.send(TestRequest(method, target).header("X-Key", "k"));
    };
    EXPECT_EQ(client.get("/route/of/the/page").body(), "page");
    // The rules of a group hold for all that is below its prefix.
    EXPECT_EQ(client.get("/api/nothing").status(), 401);
    EXPECT_EQ(client.get("/api/page").status(), 401);
    EXPECT_EQ(asked("GET", "/api/page").body(), "page");
    EXPECT_EQ(asked("GET", "/api/nothing").status(), 404);
    EXPECT_EQ(asked("GET", "/api/nothing").body(), "no such note");
    EXPECT_EQ(asked("POST", "/api/nothing").status(), 404);
    EXPECT_EQ(asked("PUT", "/api/notes").header("Allow"), "GET, HEAD, OPTIONS");
    EXPECT_EQ(asked("GET", "/api/notes").body(), "notes");
}

TEST_F(FileServing, MissingFileLeavesItsPathToOtherMethods) {
    directory_.write("elsewhere/page", "page");
    App app;
    app.onError([](const vireo::Failure& failure, Request&, Response& response) { response.text(failure.text()); });
    app.group("").files("/", directory_.path().string());
    app.post("/login", [](Request&, Response& response) { response.text("in"); });
    app.get("/slash/", [](Request&, Response& response) { response.text("slash"); });
    app.get("/elsewhere/{rest:path}", [](Request&, Response& response) { response.text("rest"); });
    app.webSocket("/socket", [](Request&, vireo::SocketOpening& opening) { opening.accept(); });
    vireo::Group other = app.group("/elsewhere");
    other.notFound([](Request&, Response& response) { response.text("not here"); });
    TestClient client(app);
    const TestResponse login = client.get("/login");
    EXPECT_EQ(login.status(), 405);
    EXPECT_EQ(login.header("Allow"), "OPTIONS, POST");
    EXPECT_EQ(login.body(), "Method Not Allowed");
    EXPECT_EQ(client.post("/login").body(), "in");
    EXPECT_EQ(client.get("/slash").status(), 308);
    const TestResponse plain = client.get("/socket");
    EXPECT_EQ(plain.status(), 426);
    EXPECT_EQ(plain.header("Upgrade"), "websocket");
    EXPECT_EQ(plain.header("Connection"), "Upgrade") << "and it is kept";
    EXPECT_EQ(client.get("/none").status(), 404);
    EXPECT_EQ(client.get("/none").body(), "Not Found");
    EXPECT_EQ(client.post("/none").status(), 405);
    EXPECT_EQ(client.get("/elsewhere/page").body(), "rest");
    EXPECT_EQ(client.post("/elsewhere/page").status(), 405);
    EXPECT_EQ(client.get("/elsewhere/").body(), "not here") << "the directory's scope has no say there";
}

TEST_F(FileServing, ReloadOpensTheDirectoryAnew) {
    directory_.write("live/file", "one");
    directory_.write("next/file", "two");
    App app;
    app.files("/", (directory_.path() / "live").string());
    TestClient client(app);
    EXPECT_EQ(client.get("/file").body(), "one");
    rename(directory_.path() / "live", directory_.path() / "old");
    rename(directory_.path() / "next", directory_.path() / "live");
    EXPECT_EQ(client.get("/file").body(), "one");
    app.reload();
    EXPECT_TRUE(waitUntil([&] { return client.get("/file").body() == "two"; }));
}

TEST_F(FileServing, ClientsThatDoNotTakeTheirFilesHoldNoWorker) {
    constexpr int Count = 100;
    const auto huge = directory_.write("huge", std::string(16000000, 'h'));
    TestClient client(app_, {.workers = 2});
    std::vector<RawClient> clients;
    for (int i = 0; i < Count; ++i) {
        clients.emplace_back(app_.port(), "127.0.0.1", 4096);
        clients.back().send(vireotest::get("/files/huge"));
        EXPECT_EQ(clients.back().readHead().value("Content-Length"), "16000000");
    }
    EXPECT_EQ(client.get("/hello").body(), "hello");
    clients.clear();
    EXPECT_TRUE(waitUntil([&] { return !isOpen(huge); }));
}

} // namespace
