// A server that has come to a limit of its process: who cannot be served is told or waits, the others are served,
// nothing crashes or hangs, and once the limit is lifted everybody is served.

#include "reliability/Faults.h"
#include "reliability/ServerProcess_posix.h"
#include "reliability/Starvation.h"
#include "support/FreePort.h"
#include "support/Pattern.h"
#include "support/RawClient.h"
#include "support/TestFile.h"
#include "support/TestServer.h"
#include "support/WaitUntil.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpServer.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/RequestOwner.h"
#include "vireo/ServerOptions.h"
#include "vireo/Vireo.h"
#include "vireo/app.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

namespace vireotest {
namespace {

using ql::http::HttpServer;
using ql::http::ListenEndpoint;
using ql::http::ServerOptions;
using Serve = ServerProcess::Serve;

/// More than a wall of memory or of a file's size leaves.
constexpr std::size_t LargeBytes = std::size_t{64} << 20U;
/// Each takes 64 KiB of the engine's.
constexpr int CrowdSize = 400;
constexpr std::uint32_t StartMs = 10000;

/// Answers with the size of the body, once that is whole, and keeps nothing of which memory could run out in its own
/// code.
class Application : public ql::http::HttpServerImpl, public ql::http::RequestOwner {
public:
    ql::HttpBaseRequest* createRequest() override { return new Request(*this); }
    void handleRequest(ql::HttpBaseRequest* request) override {
        if (request->getAnnouncedBodyBytes() == 0U) {
            answer(*request);
        } else {
            request->acceptBody();
        }
    }
    void onBodyReady(ql::HttpBaseRequest& request, bool /*isWhole*/) override { answer(request); }
    void onRequestDone(ql::HttpBaseRequest& request, std::string_view /*lossReason*/) override { delete &request; }
    void acceptWebSocket(ql::http::WebSocket* /*socket*/) override {}
    void onServerStopped() override {}
    void notifyScheduler() override {}

private:
    struct Request : ql::HttpBaseRequest {
        explicit Request(Application& of) : application(of) {}
        ql::HttpResponseInterface& getResponse() override { return response; }
        ql::http::HttpServerImpl& getServerImpl() override { return application; }

        Application& application;
        TestResponse response;
    };

    static void answer(ql::HttpBaseRequest& request) {
        const std::string size = std::to_string(request.getBodyReceivedByteCount());
        ql::HttpResponseDevice& out = request.editInternalResponseDevice();
        request.workerThreadStartHandling(qlThread::CurrentThreadId());
        out.writeBytes(size.data(), size.size());
        out.endSending();
        out.releaseResponse();
        request.workerThreadStopHandling(qlThread::CurrentThreadId());
    }
};

void runEvents(const Serve& serve) {
    ql::initializeVireo();
    {
        auto* const application = new Application;
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        options.setUploadWindowBytes(2 * LargeBytes);
        options.setMaxBodyBytes(2 * LargeBytes);
        // The server has it.
        options.setRequestOwner({std::shared_ptr<void>(), application});
        HttpServer server(application, options);
        HttpServer::Parameters parameters;
        parameters.port = freePort();
        server.startServer(parameters);
        if (!server.waitUntilRunning(StartMs)) {
            throw std::runtime_error(server.getStartErrorText());
        }
        serve(parameters.port);
    }
    ql::terminateVireo();
}

/// What polls, but has the library accept.
void runListener(const Serve& serve) {
    ql::initializeVireo();
    {
        ServerOptions options;
        options.addListener(ListenEndpoint::Tcp("127.0.0.1", 0));
        TestServer server(TestImpl::Behaviour{}, TestServer::parametersOfTests(), options);
        serve(server.server().getPort());
    }
    ql::terminateVireo();
}

void runApp(vireo::App& app, const Serve& serve) {
    app.start({.port = 0, .workers = 1, .patience = std::chrono::milliseconds(0), .quiet = true});
    serve(app.port());
    app.stop();
}

void runToolkit(const Serve& serve) {
    vireo::App app;
    app.get("/", [](vireo::Request&, vireo::Response& response) { response.text("here"); });
    app.post("/", [](vireo::Request& request,
                     vireo::Response& response) { response.text(std::to_string(request.body().text().size())); })
        .maxBody(2 * LargeBytes);
    runApp(app, serve);
}

struct Served {
    const char* name;
    std::function<void(const Serve&)> run;

    friend void PrintTo(const Served& served, std::ostream* out) { *out << served.name; }
};

const Served Events{"Events", runEvents};
const Served Listener{"Listener", runListener};
const Served Toolkit{"Toolkit", runToolkit};

std::string nameOf(const testing::TestParamInfo<Served>& info) {
    return info.param.name;
}

int statusOf(const ServerProcess& server, const std::string& request) {
    RawClient client(server.port());
    // It may be answered before it is sent.
    client.trySend(request);
    return client.readResponse().status;
}

/// 0 where the connection was closed without an answer.
int statusOrNone(const std::function<int()>& exchange) {
    int status = 0;
    visit([&] { status = exchange(); });
    return status;
}

// ---- Descriptors ----

class DescriptorWall : public testing::TestWithParam<Served> {};

TEST_P(DescriptorWall, HasNewClientsWaitWhileOthersAreServed) {
    ServerProcess server(GetParam().run);
    RawClient old(server.port());
    EXPECT_EQ(old.exchange(get("/")).status, 200);
    server.set(Wall::Descriptors);
    std::vector<RawClient> late;
    for (int i = 0; i < 50; ++i) {
        late.emplace_back(server.port()).send(get("/"));
    }
    EXPECT_TRUE(waitUntil([&] { return server.logged("Cannot accept connections : ") != 0; }));
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(old.exchange(get("/")).status, 200);
    }
    EXPECT_EQ(server.logged("Connections are accepted again : "), 0U);
    server.set(Wall::None);
    for (RawClient& client : late) {
        EXPECT_EQ(client.readResponse().status, 200);
    }
    EXPECT_TRUE(waitUntil([&] { return server.logged("Connections are accepted again : ") != 0; }));
    EXPECT_EQ(server.logged("accept"), 2U) << server.log();
}

TEST_P(DescriptorWall, DoesNotHoldUpAStop) {
    ServerProcess server(GetParam().run);
    RawClient old(server.port());
    EXPECT_EQ(old.exchange(get("/")).status, 200);
    server.set(Wall::Descriptors);
    RawClient late(server.port());
    late.send(get("/"));
    EXPECT_TRUE(waitUntil([&] { return server.logged("Cannot accept connections : ") != 0; }));
    server.end();
    EXPECT_EQ(late.readToEnd(), "");
}

INSTANTIATE_TEST_SUITE_P(Of, DescriptorWall, testing::Values(Events, Listener, Toolkit), nameOf);

TEST(ToolkitWall, FilesThatCannotBeOpenedAreAnErrorAndServedAfterwards) {
    const TestDirectory directory;
    directory.write("page.txt", "page");
    ServerProcess server([&](const Serve& serve) {
        vireo::App app;
        app.files("/", directory.path().string());
        runApp(app, serve);
    });
    RawClient client(server.port());
    EXPECT_EQ(client.exchange(get("/page.txt")).status, 200);
    server.set(Wall::Descriptors);
    EXPECT_EQ(client.exchange(get("/page.txt")).status, 500);
    server.set(Wall::None);
    EXPECT_EQ(client.exchange(get("/page.txt")).body, "page");
}

// ---- Memory ----

class MemoryWall : public testing::TestWithParam<Served> {};

TEST_P(MemoryWall, FailsWhatNeedsMuch) {
    const std::string large = post("/", std::string(LargeBytes, 'x'));
    ServerProcess server(GetParam().run);
    EXPECT_EQ(statusOf(server, get("/")), 200);
    server.set(Wall::Memory);
    EXPECT_NE(statusOrNone([&] { return statusOf(server, large); }), 200);
    EXPECT_EQ(statusOf(server, get("/")), 200) << "what failed has kept its memory";
    server.set(Wall::None);
    EXPECT_EQ(statusOf(server, large), 200);
}

TEST_P(MemoryWall, TurnsACrowdAwayButForAFew) {
    ServerProcess server(GetParam().run);
    EXPECT_EQ(statusOf(server, get("/")), 200);
    server.set(Wall::Memory);
    int served = 0;
    {
        std::vector<RawClient> crowd;
        for (int i = 0; i < CrowdSize; ++i) {
            crowd.emplace_back(server.port()).trySend(get("/"));
        }
        for (RawClient& client : crowd) {
            served += statusOrNone([&] { return client.readResponse().status; }) == 200 ? 1 : 0;
        }
    }
    EXPECT_LT(served, CrowdSize) << "there was no wall";
    server.set(Wall::None);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(statusOf(server, get("/")), 200);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, MemoryWall, testing::Values(Events, Toolkit), nameOf);

// What a handler throws cannot be logged, nor answered.
TEST(ToolkitWall, WorkerWithoutAnyMemoryLeavesNoClientWaiting) {
    ServerProcess server([](const Serve& serve) {
        vireo::App app;
        app.get("/throws", [](vireo::Request&, vireo::Response&) {
            starve();
            throw 1;
        });
        app.get("/end",
                [](vireo::Request&, vireo::Response& response) {
                    endStarvation();
                    response.text("ended");
                })
            .quick();
        app.get("/", [](vireo::Request&, vireo::Response& response) { response.text("here"); });
        runApp(app, serve);
    });
    EXPECT_NE(statusOrNone([&] { return statusOf(server, get("/throws")); }), 200);
    EXPECT_EQ(statusOf(server, get("/end")), 200);
    EXPECT_EQ(statusOf(server, get("/")), 200);
}

// ---- Threads ----

TEST(ToolkitWall, WithoutThreadsAStartSaysSo) {
    ServerProcess server([](const Serve& serve) {
        vireo::App app;
        app.get("/", [](vireo::Request&, vireo::Response& response) { response.text("here"); });
        standBefore(Wall::Threads);
        EXPECT_THROW(app.start({.port = 0, .quiet = true}), std::runtime_error);
        standBefore(Wall::None);
        runApp(app, serve);
    });
    EXPECT_EQ(statusOf(server, get("/")), 200);
}

TEST(ToolkitWall, WithoutThreadsEventsAreBrokenOffAndServedAfterwards) {
    ServerProcess server([](const Serve& serve) {
        vireo::EventChannel news;
        vireo::App app;
        app.get("/news", [&](vireo::Request&, vireo::Response& response) { response.events(news); });
        app.get("/", [](vireo::Request&, vireo::Response& response) { response.text("here"); });
        runApp(app, serve);
    });
    server.set(Wall::Threads);
    // With an error, or behind the head; in any case it ends.
    statusOrNone([&] { return statusOf(server, get("/news")); });
    EXPECT_EQ(statusOf(server, get("/")), 200);
    server.set(Wall::None);
    RawClient listener(server.port());
    listener.send(get("/news"));
    EXPECT_EQ(listener.readHead().status, 200);
}

// The only worker waits for a client, and no other one can be made for the next request.
TEST(ToolkitWall, WithoutThreadsRequestsWaitForTheWorkersThatThereAre) {
    ServerProcess server([](const Serve& serve) {
        std::atomic<bool> isReading{false};
        vireo::App app;
        app.post("/slow", [&](vireo::Request& request, vireo::Response& response) {
            while (request.body().read()) {
                isReading = true;
            }
            response.text("read");
        });
        app.get("/reading",
                [&](vireo::Request&, vireo::Response& response) { response.text(isReading ? "yes" : "no"); })
            .quick();
        app.get("/", [](vireo::Request&, vireo::Response& response) { response.text("here"); });
        runApp(app, serve);
    });
    // More than the window, so that the worker begins before all is there.
    const std::string half(std::size_t{2} << 20U, 'x');
    const std::string begin =
        head("POST", "/slow", "Content-Length: " + std::to_string(2 * half.size()) + "\r\n") + half;
    server.set(Wall::Threads);
    RawClient slow(server.port());
    slow.send(begin);
    RawClient other(server.port());
    EXPECT_TRUE(waitUntil([&] { return other.exchange(get("/reading")).body == "yes"; }));
    RawClient next(server.port());
    next.send(get("/"));
    letOthersRun();
    slow.send(half);
    EXPECT_EQ(slow.readResponse().body, "read");
    EXPECT_EQ(next.readResponse().body, "here");
    server.set(Wall::None);
    slow.send(begin);
    EXPECT_EQ(next.exchange(get("/")).body, "here") << "now there is one more for it";
    slow.send(half);
    EXPECT_EQ(slow.readResponse().body, "read");
}

// ---- The disk ----

/// A form with a file.
std::string formWith(const std::string& content) {
    return post("/form",
                "--XX\r\nContent-Disposition: form-data; name=\"f\"; filename=\"n\"\r\n\r\n" + content +
                    "\r\n--XX--\r\n",
                "Content-Type: multipart/form-data; boundary=XX\r\n");
}

TEST(ToolkitWall, FullDiskUnderAnUploadIsAnErrorThatLeavesNothing) {
    const std::string content = pattern(std::size_t{4} << 20U);
    const TestDirectory directory;
    std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
    const std::string place = directory.path().string();
    ServerProcess server([&](const Serve& serve) {
        vireo::App app;
        app.post("/form", [&](vireo::Request& request, vireo::Response& response) {
            request.form(vireo::FormOptions().directory(place)).file("f").keepAs(place + "/form");
            response.text("kept");
        });
        app.put("/file", [&](vireo::Request& request, vireo::Response& response) {
            vireo::NewFile file = request.newFile(place);
            request.body().saveTo(file);
            file.keepAs("file");
            response.text("kept");
        });
        app.get("/", [](vireo::Request&, vireo::Response& response) { response.text("here"); });
        runApp(app, serve);
    });
    const std::string form = formWith(content);
    const std::string file =
        head("PUT", "/file", "Content-Length: " + std::to_string(content.size()) + "\r\n") + content;
    for (int i = 0; i < 2; ++i) {
        server.set(Wall::FileSize);
        for (const std::string& upload : {form, file}) {
            EXPECT_EQ(statusOf(server, upload), 500);
            EXPECT_EQ(statusOf(server, get("/")), 200) << "the only worker is not free";
        }
        EXPECT_EQ(server.logged("cannot write "), static_cast<std::size_t>(2 * (i + 1))) << server.log();
        EXPECT_EQ(directory.entries(), static_cast<std::size_t>(2 * i)) << "half a file is left";
        server.set(Wall::None);
        EXPECT_EQ(statusOf(server, form), 200);
        EXPECT_EQ(statusOf(server, file), 200);
        EXPECT_TRUE(contentOf(directory.path() / "form") == content);
        EXPECT_TRUE(contentOf(directory.path() / "file") == content);
    }
}

/// Gives the calling process a file system of its own at that place, which is soon full.
bool mountSmall(const std::string& place) {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", place.c_str(), "tmpfs", 0, "size=1m,mode=0777") == 0;
}

TEST(ToolkitWall, DiskWithoutRoomIsAnErrorThatLeavesNothing) {
    const TestDirectory directory;
    std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
    const std::string place = directory.path().string();
    // Only root may, and not in each container.
    std::atomic<bool>& isMounted = *static_cast<std::atomic<bool>*>(
        ::mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ServerProcess server(
        [&](const Serve& serve) {
            vireo::App app;
            app.put("/file", [&](vireo::Request& request, vireo::Response& response) {
                vireo::NewFile file = request.newFile(place);
                request.body().saveTo(file);
                file.keepAs("file");
                response.text("kept");
            });
            app.post("/form", [&](vireo::Request& request, vireo::Response& response) {
                request.form(vireo::FormOptions().directory(place)).file("f").keepAs(place + "/form");
                response.text("kept");
            });
            app.get("/entries", [&](vireo::Request&, vireo::Response& response) {
                const std::filesystem::directory_iterator entries(place);
                response.text(std::to_string(std::distance(begin(entries), end(entries))));
            });
            runApp(app, serve);
        },
        [&] { isMounted = mountSmall(place); });
    if (!isMounted) {
        GTEST_SKIP() << "this process may not mount a small disk";
    }
    const auto put = [&](std::size_t size) {
        return statusOf(server, head("PUT", "/file", "Content-Length: " + std::to_string(size) + "\r\n") +
                                    std::string(size, 'x'));
    };
    const auto entries = [&] { return RawClient(server.port()).exchange(get("/entries")).body; };
    EXPECT_EQ(put(std::size_t{4} << 20U), 500);
    EXPECT_EQ(server.logged("cannot write "), 1U) << server.log();
    EXPECT_EQ(entries(), "0") << "half a file is left";
    EXPECT_EQ(statusOf(server, formWith(std::string(std::size_t{4} << 20U, 'x'))), 500);
    EXPECT_EQ(server.logged("cannot write "), 2U) << server.log();
    EXPECT_EQ(entries(), "0") << "half a form is left";
    EXPECT_EQ(put(500000), 200) << "what failed has kept its room";
    EXPECT_EQ(statusOf(server, formWith(std::string(400000, 'x'))), 200);
    EXPECT_EQ(entries(), "2");
}

} // namespace
} // namespace vireotest
