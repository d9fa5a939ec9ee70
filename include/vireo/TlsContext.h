// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <memory>
#include <string>

namespace ql::impl {
class TlsCredentials;
class TlsContextState;
struct TlsSettings;
} // namespace ql::impl

namespace ql::http {

/// What a TlsContext is made of: certificates above all. Nothing is looked at before that.
///
/// A value. One that was moved from may only be assigned to or destroyed.
class VIREO_API TlsOptions {
public:
    /// Whether clients are asked for a certificate.
    enum class ClientCertificates {
        None,     ///< no
        Asked,    ///< yes; who has none, or a bad one, is served all the same: see TlsPeer
        Required, ///< yes; who has no good one is not served
    };

    /// All with their defaults, and without a certificate.
    TlsOptions();
    /// Copies, or takes over.
    ///@{
    TlsOptions(const TlsOptions& other);
    TlsOptions(TlsOptions&& other) noexcept;
    TlsOptions& operator=(const TlsOptions& other);
    TlsOptions& operator=(TlsOptions&& other) noexcept;
    ///@}
    ~TlsOptions();

    // ---- The server's certificates ----

    // Each with those between it and its authority, and its key, in PEM and without a password. At least one. With
    // several, a client gets the first that has the name it asks for and a key it can use; if none has the name, the
    // first of those whose key it can use.

    /// In memory.
    void addCertificate(std::string chainPem, std::string keyPem);
    /// In files, which are read when a context is made or reloaded, not later.
    void addCertificateFiles(std::string chainFile, std::string keyFile);

    // ---- The clients' certificates ----

    /// ClientCertificates::None by default.
    void setClientCertificates(ClientCertificates wanted);
    /// What was set, or the default.
    ClientCertificates getClientCertificates() const;

    /// Whose certificates of clients are good: certificates of authorities in PEM, in memory or in a file, besides
    /// those that were added before.
    ///@{
    void addTrusted(std::string pem);
    void addTrustedFile(std::string file);
    ///@}

    // ---- Sessions ----

    /// GnuTLS's priority string: versions, ciphers, key exchanges, groups. The default, for an empty one, takes TLS 1.3
    /// and 1.2 with forward secrecy and authenticated encryption, which all browsers of the last years have. One that
    /// allows less than TLS 1.2 is refused.
    void setPriorities(std::string priorities);
    /// What was set; empty for the default.
    const std::string& getPriorities() const;

    /// Whether clients that come again may take up their former session with a ticket, which spares both a part of the
    /// handshake; true by default. A ticket is good for its context, until that is reloaded. A client's certificate is
    /// verified at each connection all the same.
    void setResumption(bool on);
    /// What was set, or the default.
    bool isResumption() const;

private:
    friend class TlsContext;

    std::unique_ptr<impl::TlsSettings> settings_;
};

/// The certificates that listeners serve with, and the other choices of TlsOptions. It can be reloaded while servers
/// run: who connects then gets the new ones, and connections that are there go on as they began.
///
/// Any number of listeners, of several servers, may share one, which lives as long as one of them has it. Any thread.
class VIREO_API TlsContext {
public:
    /// @param error where it says what is wrong, and with which file; null for nowhere.
    /// @return null when something is missing or broken, or the library was built without TLS.
    static std::shared_ptr<TlsContext> Create(const TlsOptions& options, std::string* error = nullptr);

    ~TlsContext();
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    /// Reads the files of its options again.
    /// @return false when something is missing or broken: then all stays as it was.
    bool reload(std::string* error = nullptr);
    /// The same with other options, which are its own from then on.
    bool reload(const TlsOptions& options, std::string* error = nullptr);

    /// For the library: those of this moment.
    std::shared_ptr<const impl::TlsCredentials> credentials() const;

private:
    explicit TlsContext(std::unique_ptr<impl::TlsContextState>&& state);

    const std::unique_ptr<impl::TlsContextState> state_;
};

} // namespace ql::http
