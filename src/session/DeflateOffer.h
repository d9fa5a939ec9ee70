// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What client and server agree on in Sec-WebSocket-Extensions (RFC 6455 section 9.1, RFC 7692 section 7.1).
namespace ql::impl {

struct CompressionSettings;

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
                                              const CompressionSettings& settings);

} // namespace ql::impl
