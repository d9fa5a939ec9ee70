#include "tls/TlsTransport.h"

#include "support/Event.h"
#include "support/RawSocket.h"
#include "support/TestCertificates.h"
#include "support/TlsClient.h"
#include "support/WaitUntil.h"
#include "tls/TlsHandshake.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>

#include <gnutls/gnutls.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// Sessions that one thread asks again and again. What it waits with is a pair of sockets here.

namespace {

using ql::impl::TlsTransport;
using vireotest::ClientSession;

/// Longer than any test: who waits is seen to have waited.
constexpr int PatienceMs = 2 * std::chrono::milliseconds(vireotest::Patience).count();

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
    /// Receives what the other end has said, which is this.
    void hear(std::string_view bytes) const {
        std::string heard(bytes.size(), ' ');
        pollfd entry{own(), POLLIN, 0};
        EXPECT_EQ(::poll(&entry, 1, PatienceMs), 1);
        EXPECT_EQ(::recv(own(), heard.data(), heard.size(), 0), static_cast<ssize_t>(bytes.size()));
        EXPECT_EQ(heard, bytes);
    }
    void say(std::string_view bytes) const {
        EXPECT_EQ(::send(other(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }

private:
    std::array<int, 2> ends_{};
};

class TlsTransportTest : public testing::Test {
protected:
    /// A server's session, which begins with a first question.
    class Session {
    public:
        explicit Session(const TlsTransportTest& test) : Session(test, test.events_.own()) {}
        Session(const TlsTransportTest& test, int events) {
            gnutls_init(&session_, GNUTLS_SERVER | GNUTLS_NONBLOCK);
            EXPECT_EQ(test.credentials_->prepare(session_), nullptr);
            gnutls_transport_set_int(session_, sockets.own());
            transport_.carry(session_, static_cast<std::uint64_t>(sockets.own()), events, PatienceMs);
            EXPECT_EQ(ask(), GNUTLS_E_AGAIN);
        }
        ~Session() { gnutls_deinit(session_); }
        Session(const Session&) = delete;
        Session& operator=(const Session&) = delete;

        gnutls_session_t handle() const { return session_; }
        int ask() const { return gnutls_handshake(session_); }

        SocketPair sockets;

    private:
        gnutls_session_t session_ = nullptr;
        TlsTransport transport_;
    };

    /// Says what ends a handshake, when others have had time for theirs.
    std::future<void> endLater(const Session& session) const {
        return std::async(std::launch::async, [this, &session] {
            vireotest::letOthersRun();
            sayEnd(session);
        });
    }

    /// Whether nothing was waited for: what ends the waiting is said only when the question stays without an answer.
    bool asksInVain(const Session& session, const std::function<int()>& ask) const {
        vireotest::Event answered;
        const auto end = std::async(std::launch::async, [&] {
            if (!answered.wait()) {
                sayEnd(session);
            }
        });
        const int result = ask();
        answered.set();
        return result == GNUTLS_E_AGAIN;
    }
    bool asksInVain(const Session& session) const {
        return asksInVain(session, [&] { return session.ask(); });
    }

    void sayEnd(const Session& session) const {
        session.sockets.say("no handshake at all");
        events_.say("!");
    }

    vireotest::TestAuthority authority_;
    const std::shared_ptr<const ql::impl::TlsCredentials> credentials_ = [this] {
        const vireotest::TestCertificate certificate = authority_.issueFor({"a.test"});
        ql::http::TlsOptions options;
        options.addCertificate(certificate.chainPem, certificate.keyPem);
        return vireotest::credentialsOf(options);
    }();
    SocketPair events_;
};

bool isAgain(int result) {
    return result == GNUTLS_E_AGAIN;
}

TEST_F(TlsTransportTest, WaitsWhenItIsAskedAgainAndNothingHasHappened) {
    const Session session(*this);
    const auto end = endLater(session);
    EXPECT_FALSE(isAgain(session.ask())) << "it has not waited for its client";
}

TEST_F(TlsTransportTest, DoesNotWaitWhileOthersMoveBytes) {
    const Session session(*this);
    const Session other(*this);
    other.sockets.say("\x16");
    EXPECT_TRUE(isAgain(other.ask()));
    EXPECT_TRUE(asksInVain(session)) << "the other one has waited for it";
}

TEST_F(TlsTransportTest, OneWaitsForAll) {
    const Session session(*this);
    const Session other(*this);
    const auto end = endLater(session);
    EXPECT_FALSE(isAgain(session.ask()));
    events_.hear("!");
    EXPECT_TRUE(asksInVain(other)) << "it has waited as well";
}

TEST_F(TlsTransportTest, WaitsForNothingWhereTheDaemonHasNoEvents) {
    const Session session(*this, -1);
    EXPECT_TRUE(asksInVain(session));
}

TEST_F(TlsTransportTest, DoesNotWaitOnceTheHandshakeIsDone) {
    const Session session(*this);
    const ClientSession client{{}};
    gnutls_transport_set_int(client.handle(), session.sockets.other());
    EXPECT_TRUE(isAgain(gnutls_handshake(client.handle())));
    EXPECT_TRUE(isAgain(session.ask()));
    EXPECT_EQ(gnutls_handshake(client.handle()), GNUTLS_E_SUCCESS);
    EXPECT_EQ(session.ask(), GNUTLS_E_SUCCESS);
    const auto receive = [&] {
        std::array<char, 16> bytes{};
        return static_cast<int>(gnutls_record_recv(session.handle(), bytes.data(), bytes.size()));
    };
    EXPECT_TRUE(isAgain(receive()));
    EXPECT_TRUE(asksInVain(session, receive)) << "it has waited";
}

} // namespace
