// What fails in a server with TLS fails once, at whatever place: nothing hangs, nobody is served who must show a
// certificate and has none, and the next client is served.

#include "reliability/Faults.h"
#include "support/FailingAllocation.h"
#include "support/FailingCalls.h"
#include "support/FakeRequest.h"
#include "support/TestCertificates.h"
#include "support/TestLog.h"
#include "support/TestOptions.h"
#include "support/TlsClient.h"
#include "support/WaitUntil.h"
#include "vireo/HttpServer.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/ServerOptions.h"
#include "vireo/TlsContext.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace vireotest {
namespace {

/// How many preparations of sessions are to be counted until one fails; 0 for none.
std::atomic<std::size_t> preparationsLeft{0};
std::atomic<std::size_t> preparationFailures{0};

bool isPreparationToFail() {
    std::size_t left = preparationsLeft;
    while (left != 0 && !preparationsLeft.compare_exchange_weak(left, left - 1)) {
    }
    if (left == 1) {
        ++preparationFailures;
    }
    return left == 1;
}

} // namespace
} // namespace vireotest

// In front of GnuTLS's own, in what the library does before a handshake.

int gnutls_alpn_set_protocols(gnutls_session_t session, const gnutls_datum_t* protocols, unsigned int protocols_size,
                              unsigned int flags) {
    static const auto next =
        reinterpret_cast<decltype(&gnutls_alpn_set_protocols)>(dlsym(RTLD_NEXT, "gnutls_alpn_set_protocols"));
    // The engine sets others, and without this flag.
    const bool isOfLibrary = (flags & GNUTLS_ALPN_MANDATORY) != 0;
    return isOfLibrary && vireotest::isPreparationToFail() ? GNUTLS_E_MEMORY_ERROR
                                                           : next(session, protocols, protocols_size, flags);
}

int gnutls_session_ticket_enable_server(gnutls_session_t session, const gnutls_datum_t* key) {
    static const auto next = reinterpret_cast<decltype(&gnutls_session_ticket_enable_server)>(
        dlsym(RTLD_NEXT, "gnutls_session_ticket_enable_server"));
    return vireotest::isPreparationToFail() ? GNUTLS_E_MEMORY_ERROR : next(session, key);
}

namespace vireotest {
namespace {

using ql::http::HttpServer;
using ql::http::ListenEndpoint;
using ql::http::ServerOptions;
using ql::http::TlsContext;
using ql::http::TlsOptions;

class Application : public FakeServerImpl {
public:
    Application() {
        onCreate = [this] {
            auto request = std::make_unique<EchoRequest>(*this);
            const std::lock_guard lock(mutex_);
            requests_.remove_if([](const auto& done) { return done->isSchedulerDone(); });
            return requests_.emplace_back(std::move(request)).get();
        };
        setDefaultInternalError("internal error");
    }

private:
    std::mutex mutex_;
    std::list<std::unique_ptr<EchoRequest>> requests_;
};

class TlsFault : public Fault, public testing::WithParamInterface<Kind> {
protected:
    TlsFault() {
        ServerOptions options = optionsOfTests();
        options.addListener(ListenEndpoint::Tcp("127.0.0.1", 0).setTls(context()));
        server_ = std::make_unique<HttpServer>(application_, options);
        HttpServer::Parameters parameters;
        parameters.threadPoolSize = 1;
        server_->startServer(parameters);
        if (!server_->waitUntilRunning(60000)) {
            throw std::runtime_error(server_->getStartErrorText());
        }
        CertificateOrder order;
        order.commonName = "Ada";
        known_.certificate = clients_.issue(order);
    }

    std::shared_ptr<TlsContext> context() {
        const TestCertificate certificate = authority_.issueFor({"a.test"});
        TlsOptions options;
        options.addCertificate(certificate.chainPem, certificate.keyPem);
        options.setClientCertificates(TlsOptions::ClientCertificates::Required);
        options.addTrusted(clients_.pem());
        return TlsContext::Create(options);
    }

    void exchange(const TlsWishes& wishes) const { TlsClient(server_->getPort(), wishes).exchange(get("/")); }

    TestAuthority authority_;
    TestAuthority clients_{"Authority of clients"};
    TlsWishes known_;
    const TestLog log_;
    Application* const application_ = new Application;
    std::unique_ptr<HttpServer> server_;
};

TEST_P(TlsFault, OfAConnectionLeavesTheNextOneServed) {
    const std::size_t failures = failOneAfterTheOther(GetParam(), [this] { visit([this] { exchange(known_); }); });
    EXPECT_GT(failures, 0U);
    const int before = application_->handled;
    exchange(known_);
    EXPECT_EQ(application_->handled, before + 1);
}

TEST_P(TlsFault, LetsNobodyInWithoutACertificate) {
    const std::size_t failures = failOneAfterTheOther(GetParam(), [this] { visit([this] { exchange({}); }); });
    EXPECT_GT(failures, 0U);
    EXPECT_EQ(application_->handled, 0);
}

INSTANTIATE_TEST_SUITE_P(, TlsFault,
                         testing::Values(allocations(), calls("Descriptor", FailingCall::Descriptor),
                                         calls("Watch", FailingCall::Watch), calls("Engine", FailingCall::Engine),
                                         Kind{"Preparation", [](std::size_t nth) { preparationsLeft = nth; },
                                              [] { return preparationFailures.load(); }}),
                         nameOfKind);

} // namespace
} // namespace vireotest
