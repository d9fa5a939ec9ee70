// A server that speaks TLS and has come to a limit of its process.

#include "reliability/Faults.h"
#include "reliability/ServerProcess_posix.h"
#include "support/RawClient.h"
#include "support/TestServer.h"
#include "support/TlsClient.h"
#include "support/WaitUntil.h"
#include "vireo/ServerOptions.h"
#include "vireo/TlsContext.h"
#include "vireo/Vireo.h"
#include "vireo/app.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace vireotest {
namespace {

using ql::http::ListenEndpoint;
using ql::http::ServerOptions;
using ql::http::TlsContext;
using ql::http::TlsOptions;
using Serve = ServerProcess::Serve;

constexpr int CrowdSize = 400;
/// What a ClientHello begins with.
const std::string HalfHandshake("\x16\x03\x01", 3);

class TlsWall : public testing::Test {
protected:
    static std::shared_ptr<TlsContext> contextWith(const TestCertificate& certificate) {
        TlsOptions tls;
        tls.addCertificate(certificate.chainPem, certificate.keyPem);
        std::string error;
        const std::shared_ptr<TlsContext> context = TlsContext::Create(tls, &error);
        if (!context) {
            throw std::runtime_error(error);
        }
        return context;
    }

    static void run(const Serve& serve, const TestCertificate& certificate) {
        ql::initializeVireo();
        {
            ServerOptions options;
            options.setWaiting(ServerOptions::Waiting::Event);
            options.addListener(ListenEndpoint::Tcp("127.0.0.1", 0).setTls(contextWith(certificate)));
            TestServer server(TestImpl::Behaviour{}, TestServer::parametersOfTests(), options);
            serve(server.server().getPort());
        }
        ql::terminateVireo();
    }

    int ask() { return TlsClient(server_.port()).exchange(get("/")).status; }

    TestAuthority authority_;
    const TestCertificate certificate_ = authority_.issueFor({"a.test"});
    ServerProcess server_{[this](const Serve& serve) { run(serve, certificate_); }};
};

TEST_F(TlsWall, WithoutDescriptorsNewClientsWaitForTheirHandshake) {
    TlsClient old(server_.port());
    RawClient half(server_.port());
    half.send(HalfHandshake);
    EXPECT_EQ(old.exchange(get("/")).status, 200);
    server_.set(Wall::Descriptors);
    std::vector<RawClient> late;
    for (int i = 0; i < 50; ++i) {
        late.emplace_back(server_.port()).send(HalfHandshake);
    }
    EXPECT_TRUE(waitUntil([&] { return server_.logged("Cannot accept connections : ") != 0; }));
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(old.exchange(get("/")).status, 200);
    }
    server_.set(Wall::None);
    EXPECT_EQ(ask(), 200);
    server_.end();
}

TEST_F(TlsWall, WithoutThreadsAStartSaysSoAndThoseThatServeGoOn) {
    ServerProcess server([this](const Serve& serve) {
        vireo::App app;
        app.get("/", [](vireo::Request&, vireo::Response& response) { response.text("here"); }).quick();
        const auto start = [&] { app.start({.port = 0, .tls = contextWith(certificate_), .quiet = true}); };
        standBefore(Wall::Threads);
        EXPECT_THROW(start(), std::runtime_error);
        standBefore(Wall::None);
        start();
        serve(app.port());
        app.stop();
    });
    server.set(Wall::Threads);
    std::vector<RawClient> half;
    for (int i = 0; i < 50; ++i) {
        half.emplace_back(server.port()).send(HalfHandshake);
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(TlsClient(server.port()).exchange(get("/")).body, "here");
    }
}

TEST_F(TlsWall, WithoutMemoryHandshakesFailAndComeThroughAfterwards) {
    EXPECT_EQ(ask(), 200);
    server_.set(Wall::Memory);
    int served = 0;
    {
        std::vector<std::unique_ptr<TlsClient>> crowd;
        for (int i = 0; i < CrowdSize; ++i) {
            visit([&] {
                crowd.push_back(std::make_unique<TlsClient>(server_.port()));
                served += crowd.back()->exchange(get("/")).status == 200 ? 1 : 0;
            });
        }
    }
    EXPECT_LT(served, CrowdSize) << "there was no wall";
    server_.set(Wall::None);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(ask(), 200);
    }
}

} // namespace
} // namespace vireotest
