#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace vireotest {

/// What a certificate is to say.
struct CertificateOrder {
    enum class Key { Ecdsa, Rsa };
    enum class Purpose { Any, Server, Client };

    /// Host names that it is for.
    std::vector<std::string> names;
    std::string commonName;
    Key key = Key::Ecdsa;
    Purpose purpose = Purpose::Any;
    /// From and until when it is good, in seconds from now.
    std::time_t begin = -3600;
    std::time_t end = 86400;
    bool isAuthority = false;
};

/// A certificate and its key, in PEM.
struct TestCertificate {
    std::string chainPem;
    std::string keyPem;
    /// SHA-256, as 64 lower-case hexadecimal digits.
    std::string fingerprint;
};

/// An authority of certificates, made for a test.
class TestAuthority {
public:
    explicit TestAuthority(const std::string& name = "Test authority");
    ~TestAuthority();
    TestAuthority(const TestAuthority&) = delete;
    TestAuthority& operator=(const TestAuthority&) = delete;

    /// Its own certificate.
    const std::string& pem() const { return pem_; }

    TestCertificate issue(const CertificateOrder& order);
    /// A server's, for the names.
    TestCertificate issueFor(std::vector<std::string> names, CertificateOrder::Key key = CertificateOrder::Key::Ecdsa);

private:
    struct KeyPair;

    const std::unique_ptr<KeyPair> own_;
    std::string pem_;
    std::uint32_t lastSerial_ = 1;
};

} // namespace vireotest
