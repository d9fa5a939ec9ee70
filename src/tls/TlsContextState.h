// SPDX-License-Identifier: MIT
#pragma once

#include "tls/TlsSettings.h"
#include "vireo/support/qlMutex.h"

#include <memory>
#include <string>

namespace ql::impl {

class TlsCredentials;

/// What ql::http::TlsContext is made of. Order of locks: as they stand here.
class TlsContextState {
public:
    /// Makes the credentials of other settings, which are kept; without any, those of the same ones anew.
    /// @return false, with the reason, when they cannot be made: then nothing changes.
    bool load(const TlsSettings* settings, std::string& error) QL_EXCLUDES(loading_, mutex_);

    /// Null before the first load that succeeds.
    std::shared_ptr<const TlsCredentials> credentials() QL_EXCLUDES(mutex_);

private:
    /// Held while files are read, for which no handshake waits.
    qlMutex loading_;
    TlsSettings settings_ QL_GUARDED_BY(loading_);
    qlMutex mutex_;
    std::shared_ptr<const TlsCredentials> credentials_ QL_GUARDED_BY(mutex_);
};

} // namespace ql::impl
