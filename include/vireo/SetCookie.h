// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ql::http {

/// A cookie that a response sets, with its attributes (RFC 6265 section 4.1). Made for
/// HttpResponseInterface::getCookies(): `cookies[cookie.getName()] = cookie.getValueAndAttributes()`.
///
/// One whose name begins with "__Secure-" comes back over TLS alone; one with "__Host-", in any case as well, is for
/// all paths of the host that sets it, and no host below can set it: browsers drop those that say otherwise.
///
/// A value. What may not stand where it is given throws std::invalid_argument, and changes nothing.
class VIREO_API SetCookie {
public:
    /// With which requests of other sites' pages the cookie comes back.
    enum class SameSite {
        None,   ///< with all; only over TLS
        Lax,    ///< where such a page leads the user here
        Strict, ///< with none
    };

    /// A cookie that lasts until the browser is closed.
    /// @param name a token.
    /// @param value printable ASCII without blanks, commas, semicolons, backslashes or quotes, but for one at each end.
    /// Encode what else is to be in it.
    SetCookie(std::string name, std::string value);

    /// For which paths the cookie is; begins with "/", ends with no blank. Without it: those beside the one that sets
    /// it. "/" alone with the prefix "__Host-".
    SetCookie& setPath(std::string path);
    /// For which hosts: this one and all below it. Without it: only the one that sets it.
    /// @param domain letters, digits, "-" and ".". None with the prefix "__Host-".
    SetCookie& setDomain(std::string domain);
    /// How long it lasts, in seconds; 0 or less removes it. Counts before setExpires().
    SetCookie& setMaxAge(std::int64_t seconds);
    /// Until when it lasts, in seconds since 1970, UTC; from 1970 up to the year 9999.
    SetCookie& setExpires(std::int64_t unixSeconds);
    /// Whether it comes back over TLS alone.
    SetCookie& setSecure(bool on = true);
    /// Whether scripts cannot read it.
    SetCookie& setHttpOnly(bool on = true);
    /// SameSite::None makes it secure as well: browsers drop it otherwise.
    SetCookie& setSameSite(SameSite sameSite);

    /// As it was given.
    const std::string& getName() const { return name_; }
    /// What follows the name's "=".
    std::string getValueAndAttributes() const;
    /// The whole value of a "Set-Cookie" header.
    std::string toString() const;

private:
    std::string name_;
    std::string value_;
    std::string path_;
    std::string domain_;
    std::optional<std::int64_t> maxAgeSeconds_;
    std::optional<std::int64_t> expires_;
    std::optional<SameSite> sameSite_;
    bool secure_ = false;
    bool httpOnly_ = false;
};

} // namespace ql::http
