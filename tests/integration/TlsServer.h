#pragma once

#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"
#include "support/TestCertificates.h"
#include "support/TlsClient.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/TlsContext.h"
#include "vireo/TlsPeer.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace vireotest {

/// A server with a listener that speaks TLS and, behind it, one that does not; it echoes messages of WebSockets.
class TlsServing : public ServerTest {
protected:
    using ServerTest::ServerTest;

    static ql::http::ListenEndpoint loopback() { return ql::http::ListenEndpoint::Tcp("127.0.0.1", 0); }

    static ql::http::TlsOptions optionsOf(const TestCertificate& certificate) {
        ql::http::TlsOptions options;
        options.addCertificate(certificate.chainPem, certificate.keyPem);
        return options;
    }

    static std::shared_ptr<ql::http::TlsContext> contextOf(const ql::http::TlsOptions& options) {
        std::string error;
        std::shared_ptr<ql::http::TlsContext> context = ql::http::TlsContext::Create(options, &error);
        if (!context) {
            throw std::runtime_error(error);
        }
        return context;
    }

    void start(TestImpl::Handler handler = {}, const ql::http::ServerOptions& options = optionsOfTests()) {
        Behaviour behaviour;
        behaviour.handler = std::move(handler);
        echoWebSockets(behaviour, alive_);
        ql::http::ServerOptions listening = options;
        listening.addListener(loopback().setTls(context_));
        listening.addListener(loopback());
        server_ = std::make_unique<TestServer>(std::move(behaviour), parameters_, listening);
        port_ = server_->server().getPorts().at(0);
        plainPort_ = server_->server().getPorts().at(1);
    }

    bool isServed(const TlsWishes& wishes = {}) const {
        TlsClient client(port_, wishes);
        return client.exchange(get("/")).status == 200;
    }

    TestAuthority authority_;
    const TestCertificate certificate_ = authority_.issueFor({"a.test"});
    std::shared_ptr<ql::http::TlsContext> context_ = contextOf(optionsOf(certificate_));
    Parameters parameters_ = TestServer::parametersWithWebSockets();
    std::uint16_t port_ = 0;
    std::uint16_t plainPort_ = 0;
    /// WebSockets.
    std::atomic<int> alive_{0};
    std::unique_ptr<TestServer> server_;
};

} // namespace vireotest
