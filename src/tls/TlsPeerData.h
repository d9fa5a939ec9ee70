// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace ql::impl {

/// What ql::http::TlsPeer tells, which says what each is.
struct TlsPeerData {
    std::string version;
    std::string cipher;
    bool isResumed = false;
    std::string serverName;
    bool hasCertificate = false;
    bool isVerified = false;
    std::string subject;
    std::string fingerprint;
};

} // namespace ql::impl
