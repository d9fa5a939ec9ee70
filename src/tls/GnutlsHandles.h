// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>

// What is GnuTLS's and has to be given back.

namespace ql::impl {

/// More than a host's name can have.
inline constexpr std::size_t MostNameBytes = 256;

/// Calls the function with what it holds.
template <auto Function>
struct GnutlsDeleter {
    template <typename Pointer>
    void operator()(Pointer* held) const {
        Function(held);
    }
};

using Certificate = std::unique_ptr<gnutls_x509_crt_int, GnutlsDeleter<gnutls_x509_crt_deinit>>;

/// Bytes, which are cleared at the end, since there are keys among them.
class SecretBytes {
public:
    SecretBytes() = default;
    ~SecretBytes() {
        if (datum.data != nullptr) {
            gnutls_memset(datum.data, 0, datum.size);
            gnutls_free(datum.data);
        }
    }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    gnutls_datum_t datum{nullptr, 0};
};

} // namespace ql::impl
