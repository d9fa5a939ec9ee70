// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace ql {

/// An absolute URL with an authority, parsed by the generic syntax of RFC 3986. Not synchronized.
class VIREO_API Url {
public:
    Url();
    virtual ~Url();
    /// Copies, or takes over.
    ///@{
    Url(const Url&);
    Url(Url&&) noexcept;
    Url& operator=(const Url&);
    Url& operator=(Url&&) noexcept;
    ///@}

    /// Parses `scheme://[userinfo@]host[:port][/path][?query][#fragment]`. Only the characters that RFC 3986 allows
    /// may stand unescaped, and each "%" must begin an escape of two hexadecimal digits.
    /// @param error if not null, receives a sentence that says what is wrong and where (printable ASCII; positions
    /// count the bytes of the component from 1); emptied on success.
    /// @param strictUtf8 true: what the escapes of the path, query and fragment decode to must be valid UTF-8.
    /// @param maxLength bound in bytes of the part that follows the authority (path, query and fragment).
    /// @return isValid(). On failure every component is empty.
    bool fromEncodedUtf8String(const std::string& text, std::string* error, bool strictUtf8, std::uint64_t maxLength);
    /// The same, keeping the caller's text instead of a copy.
    bool fromEncodedUtf8String(std::string&& text, std::string* error, bool strictUtf8, std::uint64_t maxLength);

    /// True when the last parse succeeded; false before the first. (Nothing holds of a URL that was moved from.)
    bool isValid() const { return valid_; }

    /// The URL as it was given; empty when invalid.
    const std::string& toString() const { return text_; }

    /// Lower-cased.
    const std::string& getScheme() const { return scheme_; }
    /// True when there is an "@", even with nothing in front of it.
    bool hasUserInfo() const { return hasUserInfo_; }
    /// Still percent-encoded.
    const std::string& getUserInfo() const { return userInfo_; }
    /// Lower-cased; an address without its brackets.
    const std::string& getHost() const { return host_; }
    /// 0 when the URL names none.
    std::uint16_t getPort() const { return port_; }
    /// Still percent-encoded; empty or with a leading "/".
    const std::string& getPath() const { return path_; }
    /// The path with its escapes decoded. It may hold any character, "/", ".." and NUL among them: check it before
    /// it names a file.
    const std::string& getDecodedPath() const { return decodedPath_; }
    /// True when there is a "?", even with nothing behind it.
    bool hasQuery() const { return hasQuery_; }
    /// What follows "?", still percent-encoded.
    const std::string& getQuery() const { return query_; }
    /// What follows "#", still percent-encoded.
    const std::string& getFragment() const { return fragment_; }

protected:
    /// A further rule of the derived class's scheme, asked once the generic syntax holds.
    /// @return what is wrong, or an empty text.
    virtual std::string checkScheme() const;

private:
    std::string parse(std::string_view all, bool strictUtf8, std::uint64_t maxLength);
    std::string parseAuthority(std::string_view rest);
    void clear();

    bool valid_ = false;
    bool hasUserInfo_ = false;
    bool hasQuery_ = false;
    std::uint16_t port_ = 0;
    std::string text_;
    std::string scheme_;
    std::string userInfo_;
    std::string host_;
    std::string path_;
    std::string decodedPath_;
    std::string query_;
    std::string fragment_;
};

namespace http {

/// A URL of the http or https scheme (RFC 9110 section 4.2): it has a host, and no user information, which that
/// section tells recipients to treat as an error.
class VIREO_API HttpUrl : public Url {
public:
    HttpUrl();
    ~HttpUrl() override;
    /// Copies, or takes over.
    ///@{
    HttpUrl(const HttpUrl&);
    HttpUrl(HttpUrl&&) noexcept;
    HttpUrl& operator=(const HttpUrl&);
    HttpUrl& operator=(HttpUrl&&) noexcept;
    ///@}

protected:
    std::string checkScheme() const override;
};

} // namespace http
} // namespace ql
