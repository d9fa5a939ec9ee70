#include "vireo/TlsContext.h"

#include "support/TestCertificates.h"
#include "support/TestLog.h"
#include "tls/TlsHandshake.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ql::http::TlsContext;
using ql::http::TlsOptions;
using testing::HasSubstr;
using vireotest::CertificateOrder;
using vireotest::TestAuthority;
using vireotest::TestCertificate;
using vireotest::TlsHandshake;

using ClientCertificates = TlsOptions::ClientCertificates;

/// A directory for one test.
class TlsContextFixture : public testing::Test {
protected:
    TlsContextFixture() { std::filesystem::create_directory(directory_); }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string write(const std::string& name, const std::string& text) const {
        const std::filesystem::path path = directory_ / name;
        std::ofstream(path, std::ios::binary) << text;
        return path.string();
    }

    std::string path(const std::string& name) const { return (directory_ / name).string(); }

    static TlsOptions optionsOf(const TestCertificate& certificate) {
        TlsOptions options;
        options.addCertificate(certificate.chainPem, certificate.keyPem);
        return options;
    }

    /// Why options lead to no context.
    static std::string errorOf(const TlsOptions& options) {
        std::string error;
        EXPECT_EQ(TlsContext::Create(options, &error), nullptr);
        return error;
    }

    /// What a client gets to see.
    static std::string served(const TlsContext& context) {
        const auto credentials = context.credentials();
        const TlsHandshake handshake(*credentials, {});
        return handshake.isDone() ? handshake.client().fingerprint() : "nothing";
    }

    TestAuthority authority_;

private:
    const std::filesystem::path directory_ = std::filesystem::path(testing::TempDir()) /
                                             ("vireo-tls-" + std::to_string(vireotest::currentProcessId()) + '-' +
                                              testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(TlsContextFixture, IsMadeOfTextsInMemory) {
    const TestCertificate certificate = authority_.issueFor({"a.test"});
    std::string error = "left over";
    const auto context = TlsContext::Create(optionsOf(certificate), &error);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(error, "");
    EXPECT_EQ(served(*context), certificate.fingerprint);
}

TEST_F(TlsContextFixture, IsMadeOfFiles) {
    const TestCertificate certificate = authority_.issueFor({"a.test"});
    TlsOptions options;
    options.addCertificateFiles(write("chain.pem", certificate.chainPem), write("key.pem", certificate.keyPem));
    const auto context = TlsContext::Create(options);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(served(*context), certificate.fingerprint);
}

TEST_F(TlsContextFixture, WantsACertificate) {
    EXPECT_EQ(errorOf({}), "There is no certificate");
}

TEST_F(TlsContextFixture, NamesTheFileThatIsMissing) {
    const TestCertificate certificate = authority_.issueFor({"a.test"});
    const std::string chain = write("chain.pem", certificate.chainPem);
    TlsOptions withoutKey;
    withoutKey.addCertificateFiles(chain, path("key.pem"));
    EXPECT_THAT(errorOf(withoutKey), HasSubstr(path("key.pem") + " : "));
    TlsOptions withoutChain;
    withoutChain.addCertificateFiles(path("other.pem"), chain);
    EXPECT_THAT(errorOf(withoutChain), HasSubstr(path("other.pem") + " : "));
}

TEST_F(TlsContextFixture, NamesTheFileThatIsBroken) {
    const TestCertificate certificate = authority_.issueFor({"a.test"});
    const std::string good = write("chain.pem", certificate.chainPem);
    const std::string half = certificate.chainPem.substr(0, certificate.chainPem.size() / 2);
    TlsOptions brokenChain;
    brokenChain.addCertificateFiles(write("broken.pem", half), write("key.pem", certificate.keyPem));
    EXPECT_THAT(errorOf(brokenChain), HasSubstr(path("broken.pem") + " : "));
    TlsOptions brokenKey;
    brokenKey.addCertificateFiles(good, write("empty.pem", ""));
    EXPECT_THAT(errorOf(brokenKey), HasSubstr(path("empty.pem") + " : "));
}

TEST_F(TlsContextFixture, TellsWhichOfTheTextsInMemoryIsBroken) {
    const TestCertificate certificate = authority_.issueFor({"a.test"});
    TlsOptions options = optionsOf(certificate);
    options.addCertificate(certificate.chainPem, "no key");
    EXPECT_THAT(errorOf(options), HasSubstr("key 2 : "));
}

TEST_F(TlsContextFixture, RefusesTheKeyOfAnotherCertificate) {
    const TestCertificate certificate = authority_.issueFor({"a.test"});
    const TestCertificate other = authority_.issueFor({"a.test"});
    TlsOptions options;
    options.addCertificateFiles(write("chain.pem", certificate.chainPem), write("key.pem", other.keyPem));
    EXPECT_THAT(errorOf(options), HasSubstr(path("chain.pem") + ", " + path("key.pem") + " : "));
}

TEST_F(TlsContextFixture, RefusesVersionsBelowTls12) {
    TlsOptions options = optionsOf(authority_.issueFor({"a.test"}));
    options.setPriorities("NORMAL:-VERS-ALL:+VERS-TLS1.2:+VERS-TLS1.1");
    EXPECT_EQ(options.getPriorities(), "NORMAL:-VERS-ALL:+VERS-TLS1.2:+VERS-TLS1.1");
    EXPECT_THAT(errorOf(options), HasSubstr("they allow less than TLS 1.2"));
    options.setPriorities("NORMAL:-VERS-ALL:+VERS-TLS1.2");
    EXPECT_NE(TlsContext::Create(options), nullptr);
}

TEST_F(TlsContextFixture, RefusesPrioritiesThatAreNone) {
    TlsOptions options = optionsOf(authority_.issueFor({"a.test"}));
    options.setPriorities("SOMETHING");
    EXPECT_THAT(errorOf(options), HasSubstr("priorities \"SOMETHING\" : "));
}

TEST_F(TlsContextFixture, RequiresWhomToTrustWithClientCertificates) {
    TlsOptions options = optionsOf(authority_.issueFor({"a.test"}));
    EXPECT_EQ(options.getClientCertificates(), ClientCertificates::None);
    options.setClientCertificates(ClientCertificates::Required);
    EXPECT_EQ(options.getClientCertificates(), ClientCertificates::Required);
    EXPECT_EQ(errorOf(options), "Certificates of clients are required, but none is trusted");
    options.addTrusted(authority_.pem());
    EXPECT_NE(TlsContext::Create(options), nullptr);
}

TEST_F(TlsContextFixture, NamesTheTrustThatIsBroken) {
    TlsOptions options = optionsOf(authority_.issueFor({"a.test"}));
    options.addTrustedFile(write("trust.pem", authority_.pem()));
    options.addTrustedFile(write("none.pem", "nothing"));
    EXPECT_THAT(errorOf(options), HasSubstr(path("none.pem") + " : "));
}

TEST_F(TlsContextFixture, SaysInTheLogThatACertificateHasExpired) {
    const vireotest::TestLog log;
    CertificateOrder order;
    order.commonName = "a.test";
    order.begin = -7200;
    order.end = -3600;
    const auto context = TlsContext::Create(optionsOf(authority_.issue(order)));
    EXPECT_NE(context, nullptr);
    EXPECT_THAT(log.texts(qlLogType::Failure), testing::ElementsAre("The certificate has expired : certificate 1"));
}

TEST_F(TlsContextFixture, SaysNothingOfACertificateThatIsValid) {
    const vireotest::TestLog log;
    EXPECT_NE(TlsContext::Create(optionsOf(authority_.issueFor({"a.test"}))), nullptr);
    EXPECT_THAT(log.texts(qlLogType::Failure), testing::IsEmpty());
}

TEST_F(TlsContextFixture, SaysInTheLogThatACertificateIsNotValidYet) {
    const vireotest::TestLog log;
    CertificateOrder order;
    order.commonName = "a.test";
    order.begin = 3600;
    const auto context = TlsContext::Create(optionsOf(authority_.issue(order)));
    EXPECT_NE(context, nullptr);
    EXPECT_THAT(log.texts(qlLogType::Failure),
                testing::ElementsAre("The certificate is not valid yet : certificate 1"));
}

TEST_F(TlsContextFixture, ReloadReadsTheFilesAgain) {
    const TestCertificate first = authority_.issueFor({"a.test"});
    TlsOptions options;
    options.addCertificateFiles(write("chain.pem", first.chainPem), write("key.pem", first.keyPem));
    const auto context = TlsContext::Create(options);
    ASSERT_NE(context, nullptr);

    const TestCertificate second = authority_.issueFor({"a.test"});
    write("chain.pem", second.chainPem);
    write("key.pem", second.keyPem);
    EXPECT_EQ(served(*context), first.fingerprint);
    EXPECT_TRUE(context->reload());
    EXPECT_EQ(served(*context), second.fingerprint);
}

TEST_F(TlsContextFixture, ReloadTakesOtherOptions) {
    const auto context = TlsContext::Create(optionsOf(authority_.issueFor({"a.test"})));
    ASSERT_NE(context, nullptr);
    const TestCertificate second = authority_.issueFor({"b.test"});
    EXPECT_TRUE(context->reload(optionsOf(second)));
    EXPECT_EQ(served(*context), second.fingerprint);
    EXPECT_TRUE(context->reload());
    EXPECT_EQ(served(*context), second.fingerprint);
}

TEST_F(TlsContextFixture, BrokenPairLeavesTheOldOne) {
    const TestCertificate first = authority_.issueFor({"a.test"});
    TlsOptions options;
    options.addCertificateFiles(write("chain.pem", first.chainPem), write("key.pem", first.keyPem));
    const auto context = TlsContext::Create(options);
    ASSERT_NE(context, nullptr);

    const TestCertificate second = authority_.issueFor({"a.test"});
    write("chain.pem", second.chainPem);
    std::string error;
    EXPECT_FALSE(context->reload(&error));
    EXPECT_THAT(error, HasSubstr(path("key.pem")));
    EXPECT_EQ(served(*context), first.fingerprint);

    EXPECT_FALSE(context->reload({}, &error));
    write("key.pem", second.keyPem);
    EXPECT_TRUE(context->reload(&error)) << error;
    EXPECT_EQ(served(*context), second.fingerprint);
}

TEST_F(TlsContextFixture, OptionsAreValues) {
    TlsOptions options;
    options.setResumption(false);
    TlsOptions copy(options);
    copy.setResumption(true);
    EXPECT_FALSE(options.isResumption());
    EXPECT_TRUE(copy.isResumption());
    options = copy;
    EXPECT_TRUE(options.isResumption());
    TlsOptions taken(std::move(options));
    EXPECT_TRUE(taken.isResumption());
    copy = std::move(taken);
    EXPECT_TRUE(copy.isResumption());
}

} // namespace
