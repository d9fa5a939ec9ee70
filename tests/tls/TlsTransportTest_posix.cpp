#include "tls/TlsTransport.h"

#include "support/TestCertificates.h"
#include "support/TlsClient.h"
#include "support/WaitUntil.h"
#include "tls/FakeSuspensions.h"
#include "tls/TlsHandshake.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <gnutls/gnutls.h>
#include <sys/socket.h>
#include <unistd.h>

// Sessions that one thread asks again and again, as the engine does.

namespace {

using ql::impl::EngineConnection;
using ql::impl::HandshakeWatch;
using ql::impl::TlsTransport;
using vireotest::ClientSession;
using vireotest::FakeSuspensions;

class SocketPair {
public:
    SocketPair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends_.data()), 0); }
    ~SocketPair() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    int own() const { return ends_[0]; }
    int other() const { return ends_[1]; }
    /// Says it to this end.
    void say(std::string_view bytes) const {
        EXPECT_EQ(::send(other(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }
    /// Until this end can send no more.
    void fill() const {
        const std::string bytes(65536, 'x');
        while (::send(own(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
    }

private:
    std::array<int, 2> ends_{};
};

class TlsTransportTest : public testing::Test {
protected:
    /// A server's session, which begins with a first question.
    class Session {
    public:
        explicit Session(TlsTransportTest& test) {
            gnutls_init(&session_, GNUTLS_SERVER | GNUTLS_NONBLOCK);
            EXPECT_EQ(test.credentials_->prepare(session_), nullptr);
            transport_.carry(session_, {connection(), static_cast<std::uint64_t>(sockets.own())}, test.watch_);
            EXPECT_EQ(ask(), GNUTLS_E_AGAIN);
        }
        ~Session() { gnutls_deinit(session_); }
        Session(const Session&) = delete;
        Session& operator=(const Session&) = delete;

        gnutls_session_t handle() const { return session_; }
        int ask() const {
            EXPECT_FALSE(isAside()) << "the engine asks nobody who is suspended";
            return gnutls_handshake(session_);
        }
        bool isAside() const { return FakeSuspensions::isSuspended(connection()); }
        bool isTakenUp() const {
            return vireotest::waitUntil([this] { return !isAside(); });
        }

        SocketPair sockets;

    private:
        EngineConnection connection() const { return FakeSuspensions::connectionAt(this); }

        gnutls_session_t session_ = nullptr;
        TlsTransport transport_;
    };

    /// Whose transport is the other end.
    class Client : public ClientSession {
    public:
        explicit Client(const Session& session) : ClientSession({}) {
            gnutls_transport_set_int(handle(), session.sockets.other());
        }
        int ask() const { return gnutls_handshake(handle()); }
    };

    TlsTransportTest() { watch_.start(0); }
    ~TlsTransportTest() override { watch_.stop(); }

    vireotest::TestAuthority authority_;
    const std::shared_ptr<const ql::impl::TlsCredentials> credentials_ = [this] {
        const vireotest::TestCertificate certificate = authority_.issueFor({"a.test"});
        ql::http::TlsOptions options;
        options.addCertificate(certificate.chainPem, certificate.keyPem);
        return vireotest::credentialsOf(options);
    }();
    const FakeSuspensions engine_;
    HandshakeWatch watch_;
};

bool isAgain(int result) {
    return result == GNUTLS_E_AGAIN;
}

TEST_F(TlsTransportTest, WhoIsAskedTwiceInVainIsPutAside) {
    const Session session(*this);
    EXPECT_FALSE(session.isAside()) << "its client had no time to go on";
    EXPECT_TRUE(isAgain(session.ask()));
    EXPECT_TRUE(session.isAside());
}

TEST_F(TlsTransportTest, BytesThatAreTooFewCountAsWell) {
    const Session session(*this);
    for (int i = 0; i < 3; ++i) {
        session.sockets.say("\x16");
        EXPECT_TRUE(isAgain(session.ask()));
        EXPECT_FALSE(session.isAside());
    }
    EXPECT_TRUE(isAgain(session.ask()));
    EXPECT_TRUE(session.isAside());
}

TEST_F(TlsTransportTest, WhoWasPutAsideGoesOnWithItsHandshake) {
    const Session session(*this);
    const Client client(session);
    EXPECT_TRUE(isAgain(session.ask()));
    EXPECT_TRUE(isAgain(client.ask()));
    ASSERT_TRUE(session.isTakenUp());
    EXPECT_TRUE(isAgain(session.ask()));
    EXPECT_TRUE(isAgain(session.ask()));
    EXPECT_TRUE(session.isAside());
    EXPECT_EQ(client.ask(), GNUTLS_E_SUCCESS);
    ASSERT_TRUE(session.isTakenUp());
    EXPECT_EQ(session.ask(), GNUTLS_E_SUCCESS);
}

TEST_F(TlsTransportTest, NobodyIsPutAsideOnceTheHandshakeIsDone) {
    const Session session(*this);
    const Client client(session);
    EXPECT_TRUE(isAgain(client.ask()));
    EXPECT_TRUE(isAgain(session.ask()));
    EXPECT_EQ(client.ask(), GNUTLS_E_SUCCESS);
    EXPECT_EQ(session.ask(), GNUTLS_E_SUCCESS);
    for (int i = 0; i < 3; ++i) {
        std::array<char, 16> bytes{};
        EXPECT_TRUE(isAgain(static_cast<int>(gnutls_record_recv(session.handle(), bytes.data(), bytes.size()))));
        EXPECT_FALSE(session.isAside());
    }
}

TEST_F(TlsTransportTest, WhoCannotSendIsNotPutAside) {
    const Session session(*this);
    const Client client(session);
    EXPECT_TRUE(isAgain(client.ask()));
    session.sockets.fill();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(isAgain(session.ask()));
        EXPECT_EQ(gnutls_record_get_direction(session.handle()), 1) << "it has not come to send";
        EXPECT_FALSE(session.isAside());
    }
}

} // namespace
