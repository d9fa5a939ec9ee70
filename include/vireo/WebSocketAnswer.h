// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace ql {
class IpAddress;
}

namespace ql::impl {
struct AnswerData;
}

namespace ql::http {

class WebSocketOptions;
class WebSocketSession;

/// What a WebSocketAcceptor says to an opening. A value that can only be moved.
class VIREO_API WebSocketAnswer {
public:
    /// Bounds of the status of Refuse().
    ///@{
    static constexpr std::uint32_t MinRefusal = 300;
    static constexpr std::uint32_t MaxRefusal = 599;
    ///@}

    /// The client gets its WebSocket.
    /// @param session serves it, and is destroyed by the library: after its end or, when it never comes to be opened
    /// because the client has left, without a call before.
    ///
    /// Throws std::invalid_argument for null.
    static WebSocketAnswer Accept(std::unique_ptr<WebSocketSession> session);

    /// The client gets an HTTP answer with this status.
    /// @param body a text; it is "text/plain" unless addHeader() says otherwise.
    ///
    /// Throws std::invalid_argument for a status that is out of bounds.
    static WebSocketAnswer Refuse(std::uint32_t status, std::string body = {});

    /// It is a request like others, without an upgrade: HttpServerImpl::handleRequest() gets it.
    static WebSocketAnswer Pass();

    /// Takes over.
    ///@{
    WebSocketAnswer(WebSocketAnswer&& other) noexcept;
    WebSocketAnswer& operator=(WebSocketAnswer&& other) noexcept;
    ///@}
    ~WebSocketAnswer();

    /// Names the subprotocol that the session speaks, if any. Only with Accept(), and one that the client offers: else
    /// the client gets a 500, and the log says why.
    void setSubprotocol(std::string name);

    /// Has the session served by other options than those of ServerOptions::setWebSockets(), but for threads, pool and
    /// allowed origins. Only with Accept().
    void setOptions(const WebSocketOptions& options);

    /// Adds a header to the answer, such as "Set-Cookie", behind those that were added before. Not with Pass().
    ///
    /// Throws std::invalid_argument for what is no field of HTTP, and for those that the library sets: Connection,
    /// Upgrade, Content-Length, Transfer-Encoding and all that begin with "Sec-WebSocket-".
    void addHeader(const std::string& name, const std::string& value);

    /// What ExchangeRecord is to tell beside: who asks through a proxy, and by which id the request is known to other
    /// logs. Not with Pass(), where the request itself has them.
    ///@{
    void setRecordClient(const IpAddress& client);
    void setRecordId(std::string id);
    ///@}

private:
    friend struct impl::AnswerData;

    explicit WebSocketAnswer(impl::AnswerData&& data);

    std::unique_ptr<impl::AnswerData> data_;
};

} // namespace ql::http
