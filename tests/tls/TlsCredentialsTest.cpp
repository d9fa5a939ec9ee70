#include "tls/TlsCredentials.h"

#include "support/TestCertificates.h"
#include "tls/TlsHandshake.h"
#include "vireo/TlsContext.h"
#include "vireo/TlsPeer.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ql::http::TlsContext;
using ql::http::TlsOptions;
using ql::http::TlsPeer;
using vireotest::CertificateOrder;
using vireotest::credentialsOf;
using vireotest::TestAuthority;
using vireotest::TestCertificate;
using vireotest::TlsHandshake;
using vireotest::TlsWishes;

using ClientCertificates = TlsOptions::ClientCertificates;

constexpr const char* Tls12 = "NORMAL:-VERS-ALL:+VERS-TLS1.2";
constexpr const char* Tls13 = "NORMAL:-VERS-ALL:+VERS-TLS1.3";

/// A server's options, with a certificate for "a.test".
class TlsCredentialsFixture : public testing::Test {
protected:
    TlsCredentialsFixture() { options_.addCertificate(own_.chainPem, own_.keyPem); }

    void add(const TestCertificate& certificate) { options_.addCertificate(certificate.chainPem, certificate.keyPem); }

    TestCertificate clientCertificate(CertificateOrder::Purpose purpose = CertificateOrder::Purpose::Client) {
        CertificateOrder order;
        order.commonName = "Ada";
        order.purpose = purpose;
        return clients_.issue(order);
    }

    void wantClientCertificates(ClientCertificates wanted) {
        options_.setClientCertificates(wanted);
        options_.addTrusted(clients_.pem());
    }

    /// What a client gets to see that asks for a name.
    std::string servedFor(const std::string& name, const std::string& priorities = TlsWishes().priorities) {
        TlsWishes wishes;
        wishes.serverName = name;
        wishes.priorities = priorities;
        const auto credentials = credentialsOf(options_);
        const TlsHandshake handshake(*credentials, wishes);
        return handshake.isDone() ? handshake.client().fingerprint() : "nothing";
    }

    TestAuthority authority_;
    TestAuthority clients_{"Authority of clients"};
    const TestCertificate own_ = authority_.issueFor({"a.test"});
    TlsOptions options_;
};

TEST_F(TlsCredentialsFixture, ClientsVerifyTheServer) {
    TlsWishes wishes;
    wishes.trustPem = authority_.pem();
    wishes.serverName = "a.test";
    const auto credentials = credentialsOf(options_);
    EXPECT_TRUE(TlsHandshake(*credentials, wishes).isDone());
    wishes.serverName = "b.test";
    EXPECT_FALSE(TlsHandshake(*credentials, wishes).isDone());
}

TEST_F(TlsCredentialsFixture, SpeakTls13AndTls12Only) {
    const auto credentials = credentialsOf(options_);
    const auto version = [&](const char* priorities) {
        TlsWishes wishes;
        wishes.priorities = priorities;
        const TlsHandshake handshake(*credentials, wishes);
        return handshake.isDone() ? handshake.peer().getVersion() : "nothing";
    };
    EXPECT_EQ(version("NORMAL"), "TLS1.3");
    EXPECT_EQ(version(Tls12), "TLS1.2");
    EXPECT_EQ(version("NORMAL:-VERS-ALL:+VERS-TLS1.1"), "nothing");
}

TEST_F(TlsCredentialsFixture, ByDefaultTakeNoCipherWithoutForwardSecrecyOrAuthentication) {
    add(authority_.issueFor({"a.test"}, CertificateOrder::Key::Rsa));
    const std::string only = std::string(Tls12) + ":-KX-ALL:-CIPHER-ALL:";
    EXPECT_NE(servedFor("a.test", only + "+ECDHE-RSA:+AES-128-GCM"), "nothing");
    EXPECT_EQ(servedFor("a.test", only + "+RSA:+AES-128-GCM"), "nothing");
    EXPECT_EQ(servedFor("a.test", only + "+ECDHE-RSA:+AES-128-CBC"), "nothing");
}

TEST_F(TlsCredentialsFixture, PrioritiesOfTheOptionsHold) {
    options_.setPriorities("NORMAL:-VERS-ALL:+VERS-TLS1.3:-CIPHER-ALL:+CHACHA20-POLY1305");
    const auto credentials = credentialsOf(options_);
    const TlsHandshake handshake(*credentials, {});
    ASSERT_TRUE(handshake.isDone());
    EXPECT_EQ(handshake.peer().getCipher(), "CHACHA20-POLY1305");
    EXPECT_EQ(servedFor("a.test", Tls12), "nothing");
}

TEST_F(TlsCredentialsFixture, ServerNameChoosesAmongCertificates) {
    const TestCertificate second = authority_.issueFor({"b.test", "c.test"});
    const TestCertificate wildcard = authority_.issueFor({"*.wild.test", "*.other.test"});
    const TestCertificate exact = authority_.issueFor({"exact.wild.test"});
    add(second);
    add(wildcard);
    add(exact);
    EXPECT_EQ(servedFor("a.test"), own_.fingerprint);
    EXPECT_EQ(servedFor("b.test"), second.fingerprint);
    EXPECT_EQ(servedFor("c.test"), second.fingerprint);
    EXPECT_EQ(servedFor("any.wild.test"), wildcard.fingerprint);
    EXPECT_EQ(servedFor("Any.Other.test"), wildcard.fingerprint);
    EXPECT_EQ(servedFor("exact.wild.test"), exact.fingerprint);
    EXPECT_EQ(servedFor("below.any.wild.test"), own_.fingerprint);
    EXPECT_EQ(servedFor("wild.test"), own_.fingerprint);
    EXPECT_EQ(servedFor("unknown.test"), own_.fingerprint);
    EXPECT_EQ(servedFor(""), own_.fingerprint);
}

TEST_F(TlsCredentialsFixture, CertificateIsOneThatTheClientCanUse) {
    const TestCertificate rsa = authority_.issueFor({"a.test"}, CertificateOrder::Key::Rsa);
    add(rsa);
    const TestCertificate wildcard = authority_.issueFor({"*.wild.test"});
    const TestCertificate wildcardRsa = authority_.issueFor({"*.wild.test"}, CertificateOrder::Key::Rsa);
    add(wildcard);
    add(wildcardRsa);
    const std::string withRsa = "NORMAL:-VERS-ALL:+VERS-TLS1.2:-KX-ALL:+ECDHE-RSA";
    EXPECT_EQ(servedFor("any.wild.test", withRsa), wildcardRsa.fingerprint);
    EXPECT_EQ(servedFor("any.wild.test"), wildcard.fingerprint);
    EXPECT_EQ(servedFor("a.test", withRsa), rsa.fingerprint);
    EXPECT_EQ(servedFor("unknown.test", withRsa), rsa.fingerprint);
    EXPECT_EQ(servedFor("a.test"), own_.fingerprint);
}

TEST_F(TlsCredentialsFixture, ProtocolIsHttp11OrTheHandshakeFails) {
    const auto credentials = credentialsOf(options_);
    TlsWishes wishes;
    EXPECT_EQ(TlsHandshake(*credentials, wishes).client().protocol(), "");
    wishes.protocols = {"h2", "http/1.1"};
    EXPECT_EQ(TlsHandshake(*credentials, wishes).client().protocol(), "http/1.1");
    wishes.protocols = {"h2"};
    EXPECT_FALSE(TlsHandshake(*credentials, wishes).isDone());
}

TEST_F(TlsCredentialsFixture, PeerTellsTheServerName) {
    const auto credentials = credentialsOf(options_);
    TlsWishes wishes;
    EXPECT_EQ(TlsHandshake(*credentials, wishes).peer().getServerName(), "");
    wishes.serverName = "unknown.test";
    EXPECT_EQ(TlsHandshake(*credentials, wishes).peer().getServerName(), "unknown.test");
}

TEST_F(TlsCredentialsFixture, ClientsAreNotAskedForACertificateByDefault) {
    options_.addTrusted(clients_.pem());
    const auto credentials = credentialsOf(options_);
    EXPECT_FALSE(credentials->isVerificationRequired());
    TlsWishes wishes;
    wishes.certificate = clientCertificate();
    const TlsHandshake handshake(*credentials, wishes);
    ASSERT_TRUE(handshake.isDone());
    EXPECT_FALSE(handshake.peer().hasCertificate());
    EXPECT_FALSE(handshake.peer().isVerified());
    EXPECT_EQ(handshake.peer().getFingerprint(), "");
    EXPECT_EQ(handshake.peer().getSubject(), "");
}

class TlsClientCertificates : public TlsCredentialsFixture, public testing::WithParamInterface<const char*> {
protected:
    bool isServed(const std::optional<TestCertificate>& certificate) {
        wishes_.certificate = certificate;
        const auto credentials = credentialsOf(options_);
        return TlsHandshake(*credentials, wishes_).isDone();
    }

    TlsPeer peerWith(const std::optional<TestCertificate>& certificate) {
        wishes_.certificate = certificate;
        const auto credentials = credentialsOf(options_);
        TlsHandshake handshake(*credentials, wishes_);
        EXPECT_TRUE(handshake.isDone());
        return handshake.peer();
    }

    TestCertificate expired() {
        CertificateOrder order;
        order.commonName = "Ada";
        order.begin = -7200;
        order.end = -3600;
        return clients_.issue(order);
    }

    TestCertificate foreign() {
        TestAuthority another("Another authority");
        CertificateOrder order;
        order.commonName = "Mallory";
        return another.issue(order);
    }

    TlsWishes wishes_ = [] {
        TlsWishes wishes;
        wishes.priorities = GetParam();
        return wishes;
    }();
};

INSTANTIATE_TEST_SUITE_P(, TlsClientCertificates, testing::Values(Tls12, Tls13), [](const auto& parameter) {
    return parameter.param == std::string(Tls12) ? "Tls12" : "Tls13";
});

TEST_P(TlsClientCertificates, RequiredMustBeGood) {
    wantClientCertificates(ClientCertificates::Required);
    EXPECT_TRUE(credentialsOf(options_)->isVerificationRequired());
    EXPECT_TRUE(isServed(clientCertificate()));
    EXPECT_TRUE(isServed(clientCertificate(CertificateOrder::Purpose::Any)));
    EXPECT_FALSE(isServed(std::nullopt));
    EXPECT_FALSE(isServed(expired()));
    EXPECT_FALSE(isServed(foreign()));
    EXPECT_FALSE(isServed(clientCertificate(CertificateOrder::Purpose::Server)));
}

TEST_P(TlsClientCertificates, AskedMayBeMissing) {
    wantClientCertificates(ClientCertificates::Asked);
    const TlsPeer peer = peerWith(std::nullopt);
    EXPECT_FALSE(peer.hasCertificate());
    EXPECT_FALSE(peer.isVerified());
}

TEST_P(TlsClientCertificates, AskedAndGoodHasASubject) {
    wantClientCertificates(ClientCertificates::Asked);
    const TestCertificate certificate = clientCertificate();
    const TlsPeer peer = peerWith(certificate);
    EXPECT_TRUE(peer.hasCertificate());
    EXPECT_TRUE(peer.isVerified());
    EXPECT_EQ(peer.getSubject(), "CN=Ada");
    EXPECT_EQ(peer.getFingerprint(), certificate.fingerprint);
}

TEST_P(TlsClientCertificates, AskedAndBadHasAFingerprintAlone) {
    wantClientCertificates(ClientCertificates::Asked);
    for (const TestCertificate& certificate :
         {expired(), foreign(), clientCertificate(CertificateOrder::Purpose::Server)}) {
        const TlsPeer peer = peerWith(certificate);
        EXPECT_TRUE(peer.hasCertificate());
        EXPECT_FALSE(peer.isVerified());
        EXPECT_EQ(peer.getSubject(), "");
        EXPECT_EQ(peer.getFingerprint(), certificate.fingerprint);
    }
}

TEST_P(TlsClientCertificates, SubjectIsWrittenInOneLineThatCannotBeForged) {
    wantClientCertificates(ClientCertificates::Asked);
    CertificateOrder order;
    order.commonName = "Ada,O=Example\n";
    const std::string subject = peerWith(clients_.issue(order)).getSubject();
    EXPECT_EQ(subject.find("Ada,O="), std::string::npos) << subject;
    EXPECT_EQ(subject.find('\n'), std::string::npos) << subject;
}

TEST_P(TlsClientCertificates, SessionIsTakenUpAgainWithItsCertificate) {
    wantClientCertificates(ClientCertificates::Required);
    const auto credentials = credentialsOf(options_);
    const TestCertificate certificate = clientCertificate();
    wishes_.certificate = certificate;
    TlsHandshake first(*credentials, wishes_);
    ASSERT_TRUE(first.isDone());
    EXPECT_FALSE(first.peer().isResumed());
    wishes_.ticket = first.ticket();
    const TlsHandshake second(*credentials, wishes_);
    ASSERT_TRUE(second.isDone());
    EXPECT_TRUE(second.client().isResumed());
    EXPECT_TRUE(second.peer().isResumed());
    EXPECT_TRUE(second.peer().isVerified());
    EXPECT_EQ(second.peer().getSubject(), "CN=Ada");
    EXPECT_EQ(second.peer().getFingerprint(), certificate.fingerprint);
}

TEST_P(TlsClientCertificates, TicketsAreGoodForTheirContextUntilItIsReloaded) {
    const auto context = TlsContext::Create(options_);
    const auto credentials = context->credentials();
    TlsHandshake first(*credentials, wishes_);
    wishes_.ticket = first.ticket();
    ASSERT_TRUE(TlsHandshake(*credentials, wishes_).client().isResumed());
    ASSERT_TRUE(context->reload());
    const auto reloaded = context->credentials();
    const TlsHandshake afterReload(*reloaded, wishes_);
    EXPECT_TRUE(afterReload.isDone());
    EXPECT_FALSE(afterReload.client().isResumed());
    const auto others = credentialsOf(options_);
    const TlsHandshake elsewhere(*others, wishes_);
    EXPECT_TRUE(elsewhere.isDone());
    EXPECT_FALSE(elsewhere.client().isResumed());
}

TEST_P(TlsClientCertificates, WithoutResumptionNobodyGetsATicket) {
    options_.setResumption(false);
    const auto credentials = credentialsOf(options_);
    TlsHandshake first(*credentials, wishes_);
    wishes_.ticket = first.ticket();
    const TlsHandshake second(*credentials, wishes_);
    EXPECT_TRUE(second.isDone());
    EXPECT_FALSE(second.client().isResumed());
}

} // namespace
