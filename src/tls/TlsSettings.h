// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/TlsContext.h"

#include <string>
#include <vector>

namespace ql::impl {

/// Where a text in PEM is.
struct PemSource {
    std::string value; ///< the text, or the name of its file
    bool isFile;
};

/// What ql::http::TlsOptions holds.
struct TlsSettings {
    struct Pair {
        PemSource chain;
        PemSource key;
    };

    std::vector<Pair> pairs;
    http::TlsOptions::ClientCertificates clientCertificates = http::TlsOptions::ClientCertificates::None;
    std::vector<PemSource> trusted;
    std::string priorities;
    bool resumption = true;
};

} // namespace ql::impl
