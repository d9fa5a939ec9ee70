// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ListenEndpoint.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ql::impl {
struct ServerSettings;
}

namespace ql::http {

class ExchangeObserver;
class RequestOwner;
class WebSocketAcceptor;

/// What a server can be given beside HttpServer::Parameters. Fresh options leave everything as it is without them, so
/// set only what is to differ.
///
/// A value: a server copies the options that it is made with. One that was moved from may only be assigned to or
/// destroyed.
class VIREO_API ServerOptions {
public:
    /// Bounds of setConnectionMemoryBytes().
    ///@{
    static constexpr std::size_t MinConnectionMemoryBytes = 8192;
    static constexpr std::size_t MaxConnectionMemoryBytes = 1073741824;
    ///@}
    /// The least for setUploadWindowBytes().
    static constexpr std::uint64_t MinUploadWindowBytes = 65536;
    /// Bounds of the deadlines, in milliseconds; 0 is allowed beside, and is none.
    ///@{
    static constexpr std::uint32_t MinDeadlineMs = 100;
    static constexpr std::uint32_t MaxDeadlineMs = 86400000;
    ///@}
    /// The most for setBodyProgress().
    static constexpr std::uint64_t MaxBodyProgressBytes = 1073741824;

    /// How daemon threads wait for what an application has not given yet.
    enum class Waiting {
        Polling, ///< they ask again and again, less often the longer nothing comes
        Event,   ///< they put the connection aside until the application has something for it
    };

    /// How the head of a request is filed in its HttpBaseRequest.
    enum class Filing {
        Maps,     ///< parsed: headers, cookies and arguments by name, and the URL
        Lines,    ///< as it came: HttpBaseRequest::getHeaderLines()
        OnDemand, ///< as it came, and parsed once somebody asks for what is parsed of it
    };

    /// What a server that is drained does with a new request.
    enum class DrainAnswer {
        Serve,  ///< handles it as ever
        Refuse, ///< answers 503 with "Retry-After", without asking the application
    };

    /// All with their defaults.
    ServerOptions();

    /// For as many requests a second as there may be: Waiting::Event, 32 KiB of memory for each connection, setTurbo()
    /// and Filing::OnDemand, the rest with its defaults. Each of them can be set otherwise afterwards.
    static ServerOptions ForThroughput();

    /// Copies, or takes over.
    ///@{
    ServerOptions(const ServerOptions& other);
    ServerOptions(ServerOptions&& other) noexcept;
    ServerOptions& operator=(const ServerOptions& other);
    ServerOptions& operator=(ServerOptions&& other) noexcept;
    ///@}
    ~ServerOptions();

    /// Has the server listen there, besides the listeners that were added before. None by default, and then it listens
    /// at Parameters::port on IPv4; with any, Parameters::port and Parameters::listenOnAllInterfaces are not consulted.
    /// All listeners share the application, the daemon threads and the limits. With listeners the library accepts the
    /// connections itself with Waiting::Polling, too, within the limits of setMaxConnections() and
    /// setMaxConnectionsPerAddress(). When one of them cannot listen none does: see HttpServer::getStartErrorText().
    void addListener(const ListenEndpoint& endpoint);
    /// In the order in which they were added.
    const std::vector<ListenEndpoint>& getListeners() const;

    /// How much memory each connection takes, in bytes; 262144 by default, 65536 with Waiting::Event. It holds the
    /// head of a request with all that the engine makes of it, then pieces of the body, and the head of the answer: a
    /// request whose head does not fit is answered 431 by the engine. Taken whole as long as the connection lives, and
    /// cleared by the engine for each request, so what is spared here is spared for each idle client and makes small
    /// requests faster; a large head, or a body in large pieces, wants it.
    ///
    /// Throws std::invalid_argument for less than MinConnectionMemoryBytes, in which the requests of browsers no
    /// longer fit, and for more than MaxConnectionMemoryBytes.
    void setConnectionMemoryBytes(std::size_t bytes);
    /// What was set, or the default.
    std::size_t getConnectionMemoryBytes() const;

    /// Whether the engine tries to read and to write before it knows that a socket is ready; false by default. It
    /// saves system calls while requests come one upon the other, and costs a vain one whenever a client is slower
    /// than that. Not for connections over TLS, which the engine would end then without saying so.
    void setTurbo(bool on);
    /// What was set, or the default.
    bool isTurbo() const;

    /// How daemon threads wait; Waiting::Polling by default. With Waiting::Event:
    ///
    /// - A request that waits for its answer, or for more of it, costs no processor time, however many there are.
    /// - An upload is held back once its reader is behind by the window of setUploadWindowBytes().
    /// - A request whose body is longer than the window, of unknown length, or announced by "Expect: 100-continue" is
    ///   held at its head: the first readBytes() lets the body come, and a release before that answers without it and
    ///   closes the connection. So a body that nobody reads is never received.
    /// - When a client breaks off its upload, the feed device has an error, so that the body does not look complete.
    /// - The library accepts connections itself, within the limits of setMaxConnections() and
    ///   setMaxConnectionsPerAddress(), and can be drained (HttpServer::drain()).
    ///
    /// It costs a few atomic operations for each request, and a wake-up of a daemon thread for each answer that comes
    /// late. While a connection is put aside, Parameters::connectionTimeoutMs does not run for it. One thread more
    /// notices which clients leave: see setEndOnClientClose(). Holds for daemons that the server starts, not for an
    /// application's own.
    void setWaiting(Waiting waiting);
    /// What was set, or the default.
    Waiting getWaiting() const;

    /// How much of a body is kept for its reader with Waiting::Event, in bytes; 1048576 by default. A piece more may
    /// be: what the engine has received at once, at most the connection's memory. It bounds what each upload takes,
    /// and the less it is, the more often a fast one stops and goes on.
    ///
    /// Throws std::invalid_argument for less than MinUploadWindowBytes.
    void setUploadWindowBytes(std::uint64_t bytes);
    /// What was set, or the default.
    std::uint64_t getUploadWindowBytes() const;

    /// The longest body that a request may have with Waiting::Event, in bytes; 0, the default, for any. A longer one
    /// that is announced is answered 413 before it is received and before the application is asked, and its connection
    /// is closed. Where only the end tells the length, the connection is closed once there is more: the body's reader
    /// gets the device error "lost connection : BodyTooLarge". With setStrictHttp() an announced length is looked at
    /// whichever way it waits.
    void setMaxBodyBytes(std::uint64_t bytes);
    /// What was set, or the default.
    std::uint64_t getMaxBodyBytes() const;

    /// The largest head that a request may have with Waiting::Event, in bytes; 0, the default, for any that fits into
    /// the connection's memory. A larger one is answered 431 before the application is asked, and its connection is
    /// closed. With setStrictHttp() it holds whichever way it waits.
    void setMaxHeadBytes(std::uint64_t bytes);
    /// What was set, or the default.
    std::uint64_t getMaxHeadBytes() const;

    /// How many requests a connection may bring with Waiting::Event; 0, the default, for any number. The answer to the
    /// last one says "Connection: close", and then the connection is closed.
    void setMaxRequestsPerConnection(std::uint32_t count);
    /// What was set, or the default.
    std::uint32_t getMaxRequestsPerConnection() const;

    /// Has an observer told of every exchange with Waiting::Event, besides those that were added before. None by
    /// default, and then nothing is noted. The server, and each copy of the options, holds it.
    ///
    /// Throws std::invalid_argument for null.
    void addExchangeObserver(std::shared_ptr<ExchangeObserver> observer);
    /// In the order in which they were added, and are told.
    const std::vector<std::shared_ptr<ExchangeObserver>>& getExchangeObservers() const;

    /// Has an owner told of what becomes of each request with Waiting::Event; null, the default, for none. It is told
    /// besides HttpServerImpl::notifyScheduler(). Holds for daemons that the server starts, not for an application's
    /// own.
    void setRequestOwner(std::shared_ptr<RequestOwner> owner);
    /// What was set, or null.
    const std::shared_ptr<RequestOwner>& getRequestOwner() const;

    /// Whether, with Waiting::Event, an exchange whose client ends its sending after the request is ended as "lost
    /// connection : ClientAbort" while its answer is waited for; true by default, as reverse proxies do. A fast answer
    /// reaches such a client all the same: it has 50 ms. With false it is answered however late, and one that has gone
    /// altogether is missed no sooner than when something is sent to it. HttpBaseRequest::hasClientLeft() tells in both
    /// cases, and a client that resets its connection is never waited for. Over TLS it is the end of the TCP connection
    /// that tells, not that of the session.
    void setEndOnClientClose(bool on);
    /// What was set, or the default.
    bool endsOnClientClose() const;

    /// How many connections a server takes at once with Waiting::Event or addListener(), WebSockets among them; 0, the
    /// default, for as many as the system's limit of descriptors allows, an eighth of it left over, or a quarter of
    /// that many where there are WebSockets and a listener with TLS: one over TLS takes up to four descriptors. Whoever
    /// comes beyond it is answered 503 with "Retry-After" at once and closed, so a client is not left hanging; over TLS
    /// it is closed without an answer. Without a descriptor left nobody is accepted for a tenth of a second, again and
    /// again; the log tells when that begins and when it is over, once a minute at most.
    void setMaxConnections(std::size_t count);
    /// What was set, or 0.
    std::size_t getMaxConnections() const;

    /// The same for the connections of one address; 0, the default, for no limit. IPv6 addresses that share their first
    /// 64 bits count as one, since a client has all of them. Clients of a Unix socket have no address, and no such
    /// limit. Behind a reverse proxy all come from its address.
    void setMaxConnectionsPerAddress(std::size_t count);
    /// What was set, or 0.
    std::size_t getMaxConnectionsPerAddress() const;

    /// For how long HttpServer::drain() goes on accepting connections, in milliseconds; 0 by default. In that time
    /// those who send clients here, such as a reverse proxy with a health check, learn that the server goes away.
    void setDrainGraceMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getDrainGraceMs() const;

    /// What becomes of a new request during HttpServer::drain(); DrainAnswer::Serve by default. Either way its answer
    /// closes the connection.
    void setDrainAnswer(DrainAnswer answer);
    /// What was set, or the default.
    DrainAnswer getDrainAnswer() const;

    // ---- Deadlines, with Waiting::Event ----

    // Who is slower is cut off: the connection is closed, and what was under way on it ends as lost, with a reason of
    // its own: "lost connection : HeadTimeout", ... That comes up to a second late, or up to a quarter of the shortest
    // deadline where that is less. None of them runs while the application has no more of a stream for now. Each takes
    // milliseconds, and 0 for no such deadline; and throws std::invalid_argument for less than MinDeadlineMs and for
    // more than MaxDeadlineMs.

    /// How long a request's head may take; 30000 by default. It counts from the begin of the connection; on one that is
    /// kept from the end of the last exchange, on top of Parameters::connectionTimeoutMs, since a head shows only when
    /// its first line is whole. There it is none if that is 0. The reason is "HeadTimeout".
    void setHeadTimeoutMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getHeadTimeoutMs() const;

    /// How much of a body must come in which time, again and again until it is whole; 4096 bytes each 30000 ms by
    /// default. The reason is "BodyTimeout".
    ///
    /// Throws std::invalid_argument for 0 bytes and for more than MaxBodyProgressBytes as well.
    void setBodyProgress(std::uint64_t bytes, std::uint32_t ms);
    /// What was set, or the defaults.
    ///@{
    std::uint64_t getBodyProgressBytes() const;
    std::uint32_t getBodyProgressMs() const;
    ///@}

    /// How long the application may take to release its answer once all of the request is there, and to read on where
    /// the client waits for it to take more of the body; 300000 by default. The reason is "AnswerTimeout".
    void setAnswerTimeoutMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getAnswerTimeoutMs() const;

    /// How long a client may take nothing of its answer while there is something to send; 60000 by default. What it has
    /// not taken is dropped then. On Windows what counts is that the next 64 KiB of a streamed body are wanted, and a
    /// body that goes out as one buffer has Parameters::connectionTimeoutMs alone. The reason is "WriteTimeout".
    void setWriteTimeoutMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getWriteTimeoutMs() const;

    // ---- HTTP ----

    /// Whether requests are held to RFC 9110 and RFC 9112; false by default. Either way of waiting. With true, before
    /// the application sees anything of a request, the library answers with a status and a line of text, and closes the
    /// connection, when
    ///
    /// - the target is neither a path, an absolute "http" or "https" URL without user information, nor "*" with
    /// OPTIONS,
    ///   or has characters that belong into none: 400; it is longer than 8192 bytes: 414
    /// - the version is none: 400; or not 1.x: 505
    /// - the method is no token: 400; or nobody knows it, and so for CONNECT: 501
    /// - a header's name is no token, its value has control characters, Host is missing (in HTTP/1.1), there twice or
    /// no
    ///   host, or the body's end is not told by at most one of one Content-Length and one "chunked": 400
    /// - name and value of a header are longer than 8096 bytes together: 431
    /// - "Expect" is for more than "100-continue": 417
    ///
    /// What the application gets is what such a request means: see HttpBaseRequest::getOriginalRequestUrl(),
    /// getCookies() and getQueryParameters(). The authority of an absolute target stands in place of Host. A handshake
    /// of a WebSocket is told by its lists, in any case of letters.
    ///
    /// What the application sets is looked at, too. A header or cookie that RFC 9110 section 5 or RFC 6265
    /// section 4.1.1 does not allow, a length that is not the answer's own, and a header again that may be there once
    /// are left out, and the log names them. For HEAD and with 304, "Content-Length" is what the application gives; a
    /// 304 without it says nothing of a length, for which engine 0.9.75 has to close the connection.
    ///
    /// What the engine refuses it answers itself, by its own texts; what it changes or cuts off before others see it
    /// passes. docs/hostile-clients.md tells which version does what: 1.0.1 leaves little to wish for.
    void setStrictHttp(bool on);
    /// What was set, or the default.
    bool isStrictHttp() const;

    /// Has setStrictHttp() serve a method beside those of HttpBaseRequest::RequestType:
    /// HttpBaseRequest::getRequestType() is Unknown then, and HttpBaseRequest::getMethodToken() tells which one it is.
    /// @param token as it is sent, which is case-sensitive.
    ///
    /// Throws std::invalid_argument for what is no token (RFC 9110 section 5.6.2).
    void addMethod(std::string token);
    /// In the order in which they were added.
    const std::vector<std::string>& getMethods() const;

    /// How the heads of requests, openings of WebSockets among them, are filed; Filing::Maps by default. Either way of
    /// waiting. With Filing::Lines a request has its method, its target, HttpBaseRequest::getHeaderLines(), where it
    /// comes from and its TLS peer alone: what is parsed from them stays empty, HttpBaseRequest::getHeaders(),
    /// getCookies(), getQueryParameters() and getParsedUrl() as well as WebSocketOpening::getPath(), and only memory
    /// can be a parse error. For those who parse heads themselves, which this spares the library and the memory.
    ///
    /// With Filing::OnDemand it has both: the first one who asks for headers by name, cookies, arguments, the parsed
    /// URL or a parse error has all of it parsed, on any thread. That follows the rules of setStrictHttp(), whether it
    /// is set or not: a cookie that is none is left out, and a target may have 8,192 bytes. But
    /// HttpBaseRequest::getOriginalRequestUrl() has the target as it came even where it is a parse error. What nobody
    /// asks for costs nothing.
    void setFiling(Filing filing);
    /// What was set, or the default.
    Filing getFiling() const;

    // ---- WebSockets ----

    /// Has the server take WebSockets by RFC 6455 and RFC 7692, as browsers open them, for sessions of the
    /// application's (WebSocketSession); null, the default, for none. Either way of waiting, with and without
    /// setStrictHttp().
    ///
    /// The acceptor decides about each handshake: a GET of HTTP/1.1 that asks for an upgrade to "websocket", in any
    /// case of letters. One of another version than 13 is answered 426 without asking it, one whose Host, key or lists
    /// are not as RFC 6455 section 4.2.1 wants them, or with a body, 400; during HttpServer::drain() each is answered
    /// 503. What it does not say Pass() to never comes to HttpServerImpl::handleRequest(), and nothing to
    /// acceptWebSocket() any more. Parameters::webSocketEnabled is not consulted.
    ///
    /// When the server stops, after HttpServerImpl::onServerStopped(), each session's peer is told by 1001 and has
    /// WebSocketOptions::setCloseTimeoutMs() to close; who is left is cut off. A drain tells them once it lets nobody
    /// in any more, and waits until they have closed. Holds for daemons that the server starts, not for an
    /// application's own.
    void setWebSockets(std::shared_ptr<WebSocketAcceptor> acceptor, const WebSocketOptions& options = {});
    /// What was set, or null and the defaults.
    ///@{
    const std::shared_ptr<WebSocketAcceptor>& getWebSocketAcceptor() const;
    const WebSocketOptions& getWebSocketOptions() const;
    ///@}

private:
    std::unique_ptr<impl::ServerSettings> settings_;
};

} // namespace ql::http
