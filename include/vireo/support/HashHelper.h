// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <memory>

namespace ql {

/// The digests on offer. The numbers are fixed.
enum class HashType : std::uint32_t {
    Sha512 = 1, ///< 64 bytes
    Sha256 = 2, ///< 32 bytes
    Sha1 = 3,   ///< 20 bytes; what the WebSocket handshake asks for, not a choice for anything new
};

/// A message digest, computed by the platform's crypto library. Not synchronized.
class VIREO_API HashHelper {
public:
    /// @throws std::runtime_error when the platform's library has no such digest.
    explicit HashHelper(HashType type);
    ~HashHelper();
    HashHelper(const HashHelper&) = delete;
    HashHelper& operator=(const HashHelper&) = delete;

    /// Bytes of the digest.
    std::uint64_t getDigestLength() const;

    /// Digests `in` alone. A message that addData() has begun stays as it is.
    /// @param out receives the first `outLength` bytes of the digest; a longer buffer keeps its rest as it was.
    void hash(const char* in, std::uint64_t inLength, char* out, std::uint64_t outLength);

    /// Adds a piece of a longer message.
    void addData(const char* in, std::uint64_t inLength);

    /// The digest of all that was added, written as hash() does; then starts a new message.
    void finish(char* out, std::uint64_t outLength);

private:
    struct Native;
    std::unique_ptr<Native> native_;
};

} // namespace ql
