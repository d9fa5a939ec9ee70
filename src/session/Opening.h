// SPDX-License-Identifier: MIT
#pragma once

#include "request/StrictHead.h"
#include "session/DeflateOffer.h"

#include <string>
#include <string_view>
#include <vector>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// What a head that asks for a WebSocket comes to (RFC 6455 section 4.2.1).
struct OpeningHead {
    enum class Verdict {
        Good,
        OtherVersion, ///< it asks for another version of the protocol
        Bad,          ///< it is none that a client may send
    };

    Verdict verdict = Verdict::Bad;
    /// Why it is bad. Lives for ever.
    std::string_view reason;
    /// The value of Sec-WebSocket-Key.
    std::string key;
    /// In the client's order.
    std::vector<std::string> subprotocols;
    std::vector<ExtensionOffer> extensions;
};

/// Whether it opens a WebSocket: in any case of letters, as browsers do.
bool isOpening(const RequestHead& head);

/// Whether it asks for one at all, however badly. In HTTP/1.0 nobody does (RFC 9110 section 7.8).
bool asksForUpgrade(const RequestHead& head);

/// Looks at a head that does.
/// @param hasBody whether a body follows it.
/// @throws std::bad_alloc
OpeningHead checkOpening(const RequestHead& head, bool hasBody);

/// Whether this is a Sec-WebSocket-Key: sixteen bytes in base 64.
bool isOpeningKey(std::string_view text);

/// What ql::http::WebSocketOpening shows. Refers to what it is made of.
class Opening {
public:
    /// @param head of the request.
    /// @param host the request's, without the blanks around it.
    Opening(const HttpBaseRequest& request, const RequestHead& head, const OpeningHead& opening, std::string_view host,
            bool isTls);

    const HttpBaseRequest& request() const { return request_; }
    const std::string& origin() const { return origin_; }
    const std::vector<std::string>& subprotocols() const { return subprotocols_; }
    bool isSameOrigin() const;

private:
    const HttpBaseRequest& request_;
    const std::vector<std::string>& subprotocols_;
    const std::string_view host_;
    const bool isTls_;
    std::string origin_;
};

} // namespace ql::impl
