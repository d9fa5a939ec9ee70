// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What client and server agree on in Sec-WebSocket-Extensions (RFC 6455 section 9.1, RFC 7692 section 7.1).
namespace ql::impl {

struct ExtensionParameter {
    std::string name;
    /// Without quotes and escapes.
    std::optional<std::string> value;
};

struct ExtensionOffer {
    std::string name;
    std::vector<ExtensionParameter> parameters;
};

/// Reads the field, of which several lines are joined by commas.
/// @return the offers in order; nothing when the text is not well-formed, for which the opening has to fail.
std::optional<std::vector<ExtensionOffer>> parseExtensions(std::string_view field);

/// How a server compresses, and what it asks of its clients.
struct DeflateSettings {
    /// Of zlib, 1 (fast) to 9 (small).
    int level = 1;
    /// Of zlib, 1 to 9: the compressor takes 2^(windowBits+2) + 2^(memoryLevel+9) bytes.
    int memoryLevel = 8;
    /// Shorter messages go as they are.
    std::size_t minBytes = 256;
    /// The largest windows, 9 to 15, of what the server sends and of what clients send. A client that cannot limit its
    /// window where less than 15 is asked for goes without compression.
    ///@{
    int serverMaxWindowBits = 15;
    int clientMaxWindowBits = 15;
    ///@}
    /// Each message stands for itself, and no memory is held between messages: of the compressor, of the decompressor.
    ///@{
    bool serverNoContextTakeover = false;
    bool clientNoContextTakeover = false;
    ///@}
};

/// The parameters that hold for a connection.
struct DeflateAgreement {
    /// 8 to 15. With 8 the server sends all messages as they are: zlib's compressor has no window as small as that.
    int serverWindowBits = 15;
    /// 8 to 15.
    int clientWindowBits = 15;
    bool serverNoContextTakeover = false;
    bool clientNoContextTakeover = false;
    /// The value of the answer's Sec-WebSocket-Extensions.
    std::string answer;
};

/// Chooses the first offer of permessage-deflate that is valid and can be met. Nothing: without compression.
std::optional<DeflateAgreement> chooseDeflate(const std::vector<ExtensionOffer>& offers,
                                              const DeflateSettings& settings);

} // namespace ql::impl
