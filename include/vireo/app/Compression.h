// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace vireo {

namespace impl {
struct CompressionRules;
} // namespace impl

/// How compression() works. What is out of bounds throws std::invalid_argument.
class VIREO_APP_API CompressionOptions {
public:
    CompressionOptions();
    CompressionOptions(const CompressionOptions& other);            ///< copies
    CompressionOptions& operator=(const CompressionOptions& other); ///< copies
    ~CompressionOptions();

    /// How hard gzip tries, 1 to 9; 6 by default.
    CompressionOptions& level(int level);
    /// How hard Brotli tries, 0 to 11; 4 by default. Those above 6 are for what is compressed once and sent often.
    CompressionOptions& brotliLevel(int level);
    /// Shorter bodies stay as they are; 1024 by default. Streams are compressed in any case, since nobody knows how
    /// long they will be.
    CompressionOptions& minBytes(std::uint64_t bytes);
    /// A media type that is to be compressed, too, as "application/x-log", or all of a kind, as "font/*". All of
    /// "text/*", JSON, JavaScript, XML, SVG, WebAssembly and a few more are anyway.
    CompressionOptions& addType(std::string mime);

private:
    friend struct impl::CompressionRules;

    std::unique_ptr<impl::CompressionRules> rules_;
};

/// Compresses answers for clients that take it, with Brotli, where the library was built with it, or gzip:
/// `app.use(vireo::compression())`.
///
/// Left as they are: what has a Content-Encoding already, files of more than 1 MiB and parts of files, event streams,
/// answers without a body, those with `Cache-Control: no-transform`, media types that do not get smaller, and
/// bodies that did not. An ETag becomes a weak one, since the bytes are others. Output::flush() lets a client see all
/// that was written so far.
///
/// Text of the client's beside a secret in one compressed answer over TLS lets others guess the secret from its length:
/// leave out such routes.
VIREO_APP_API Middleware compression(const CompressionOptions& options = {});

} // namespace vireo
