// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HeaderLine.h"
#include "vireo/HttpReceiveDevice.h"
#include "vireo/HttpResponseDevice.h"
#include "vireo/export.h"
#include "vireo/support/HttpHeaders.h"
#include "vireo/support/HttpUrl.h"
#include "vireo/support/IpAddress.h"
#include "vireo/support/qlTimer.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace ql {

class HttpResponseInterface;

namespace http {
class HttpServerImpl;
class TlsPeer;
} // namespace http

namespace impl {
struct RequestAccess;
struct RequestState;
} // namespace impl

/// One HTTP request, from the moment its head has arrived until its response was sent. The application derives its
/// own class, makes one object per request in HttpServerImpl::createRequest(), and deletes it.
///
/// Lifetime: delete a request only once isSchedulerDone() is true and no thread of the application works on it. The
/// daemon thread may still be inside the completion of the request then; the destructor waits for it. So never delete
/// one under a mutex that notifyScheduler() takes: the daemon thread, which calls that, and the destructor would wait
/// for each other for ever. Take the request off your list under the mutex, and delete it without.
///
/// Threads: a daemon thread fills the record before the application sees it, and nothing changes what it filed
/// afterwards. Then the record belongs to the application's worker thread, which calls workerThreadStartHandling()
/// first: only the thread registered there may write the response body and drive the idle callback. Members that any
/// thread may call say so.
class VIREO_API HttpBaseRequest {
public:
    /// One bit per method, so that a set of methods is a bit field. RFC 9110 section 9, RFC 5789 and QUERY.
    enum class RequestType : std::uint16_t {
        Unknown = 1,
        Options = 2,
        Get = 4,
        Post = 8,
        Put = 16,
        Delete = 32,
        Head = 64,
        Connect = 128,
        Trace = 256,
        Patch = 512,
        Query = 1024,
    };

    /// From method token to method.
    using RequestTypes = std::map<std::string, RequestType>;
    /// The values of one name, in arrival order.
    using Values = std::list<std::string>;
    /// From name to values, in byte order of the names.
    using NamedValues = std::map<std::string, Values>;

    /// What a parse error is about.
    enum class ParseErrorKind {
        None, ///< there is none
        Method,
        Target,
        HeaderName,
        HeaderValue, ///< or name and value are too long together
        Cookie,
        Query,  ///< an argument of the query
        Memory, ///< there was no memory for something
        Other,  ///< of the application's own making
    };

    /// Remembers on which request an idle callback was installed last, so that installing it on another one removes
    /// it there. The application owns it; the library never clears `request`: drop the holder, or install with it
    /// elsewhere, before that request goes.
    struct IdleCallbackHolder {
        HttpBaseRequest* request = nullptr; ///< the one with the callback; null for none
    };

    virtual ~HttpBaseRequest();
    HttpBaseRequest(const HttpBaseRequest&) = delete;
    HttpBaseRequest& operator=(const HttpBaseRequest&) = delete;

    /// The description of this request's response. Daemon thread, at every poll from the end of the body on, released
    /// or not, so cheap; what it describes is looked at only after the release. No lock is held. The reference must
    /// stay valid until the request is deleted. If an exception leaves, it is logged and the request is answered
    /// with 500.
    virtual HttpResponseInterface& getResponse() = 0;

    /// The implementation that serves this request, for its notifyScheduler(). The request's worker thread; must not
    /// block or throw.
    virtual http::HttpServerImpl& getServerImpl() = 0;

    // ---- The registry of methods ----

    /// From method token, upper case, to method: filled by initializeVireo(), emptied by terminateVireo(), constant
    /// between them.
    static RequestTypes sRequestTypes;

    /// Fills the registry. initializeVireo() calls it.
    static void InitRequestTypes();
    /// Empties the registry. terminateVireo() calls it.
    static void ClearRequestTypes();

    /// The token of exactly one method; "UNKNOWN_HTTP_METHOD" for everything else. Static texts. Any thread.
    static const std::string& RequestTypeToString(RequestType type);

    /// The names of the methods set in `bits`, joined by ", ": the usual methods first. Any thread.
    static std::string RequestTypeBitFieldToString(int bits);

    // ---- The request's head ----

    // With http::ServerOptions::Filing::OnDemand the first call that wants what is parsed has the head parsed: of
    // getParsedUrl(), getHeader(), getHeaders(), getCookie(), getCookies(), getQueryParameters() and those of parse
    // errors. Any thread.

    /// The method; Unknown when the registry has no such token, with a parse error unless the token is the
    /// application's own (http::ServerOptions::addMethod()).
    RequestType getRequestType() const;

    /// The method as it was received; empty before.
    const std::string& getMethodToken() const;

    /// The request target as it was received, still percent-encoded; "Invalid URI" when it could not be parsed. With
    /// http::ServerOptions::setStrictHttp() without the scheme and authority that an absolute one has: a path with its
    /// query, or "*".
    const std::string& getOriginalRequestUrl() const;

    /// The request target behind the placeholder "http://127.0.0.1:80": its path and query are the request's, its
    /// host and port are not. With http::ServerOptions::setStrictHttp() what browsers leave as it is in a query is
    /// percent-encoded here, and the path of "*" is "/".
    const http::HttpUrl& getParsedUrl() const;

    /// The values of a header in arrival order, split at commas (see HttpHeaders::ParseMultiValueHeader); null when
    /// it is missing.
    /// @param name in lower case.
    const Values* getHeader(const char* name) const;
    /// All header fields, under lower-cased names.
    const http::HttpHeaders& getHeaders() const;

    /// The values of a cookie in arrival order; null when it is missing. Names are case-sensitive.
    const Values* getCookie(const char* name) const;
    /// All cookies. With http::ServerOptions::setStrictHttp() one that is no pair of UTF-8 texts is left out alone, and
    /// is no parse error.
    const NamedValues& getCookies() const;

    /// The query's arguments, decoded; names are case-sensitive. An argument with bytes outside printable ASCII is a
    /// parse error and is not here: such text is in getParsedUrl().getQuery(). With
    /// http::ServerOptions::setStrictHttp() any UTF-8 but NUL is here.
    const NamedValues& getQueryParameters() const;

    /// The lines of the head's fields in the order in which they came; empty with http::ServerOptions::Filing::Maps.
    /// Where strict HTTP takes the authority of an absolute target, a line "Host" with it stands in place of those that
    /// came. They live as long as the request.
    std::span<const HeaderLine> getHeaderLines() const;

    /// How long the body is to be, as far as the head says: 0 without a body, none where only its end tells. Only with
    /// http::ServerOptions::Waiting::Event, from handleRequest() on; else none. Any thread.
    std::optional<std::uint64_t> getAnnouncedBodyBytes() const;

    /// True when anything about the head was bad; what could be understood is filed all the same.
    bool hasParseError() const;
    /// What was bad first, in a few words.
    const std::string& getParseError() const;
    /// What was bad first.
    ParseErrorKind getParseErrorKind() const;
    /// The name of the header, cookie or argument that was bad first, with "?" for each byte that is not printable
    /// ASCII; empty for anything else.
    const std::string& getParseErrorField() const;

    /// Where the connection comes from, which is the proxy when one stands in front; see its X-Forwarded-For.
    const IpAddress& getClientAddress() const;

    /// Who the client is, and how its connection is protected; null where that is without TLS. Lives as long as the
    /// request. Any thread.
    const http::TlsPeer* getTlsPeer() const;

    // ---- Intake: the daemon thread, before handleRequest() ----

    // Bad input is dropped and becomes the parse error.

    /// Where the connection comes from.
    void setClientAddress(const IpAddress& address);
    /// @param value not null.
    void addHeader(const char* name, const char* value);
    /// @param value null counts as empty.
    void addCookie(const char* name, const char* value);
    /// @param value null counts as empty.
    void addQueryParameter(const char* name, const char* value);
    /// @param method the token, upper case.
    void setHttpMethod(const std::string& method);
    /// @param url the request target; moved from when it is valid.
    void setOriginalFullUrl(std::string&& url);

    // ---- The body streams ----

    /// Has the body come, as the first readBytes() does, without a wait: one that is held at the head
    /// (http::ServerOptions::setWaiting()) is received now, as far as it may be kept. http::RequestOwner::onBodyReady()
    /// tells when it is there. Any thread, as long as the request lives; may be called again, and where there is no
    /// body.
    void acceptBody();

    /// The response's body, which lives as long as the request.
    HttpResponseDevice& editInternalResponseDevice();

    // Statistics. Any thread.

    /// Estimates: names, values and separators as text lines.
    std::uint64_t getHeaderReceivedByteCountEstimation() const { return headerReceivedBytes_; }
    /// 0 until the response is queued.
    std::uint64_t getHeaderSentByteCountEstimation() const { return headerSentBytes_.load(std::memory_order_relaxed); }
    /// Body bytes handed to the reader.
    std::uint64_t getBodyReceivedByteCount() const;
    /// Body bytes taken from the writer.
    std::uint64_t getBodySentByteCount() const;

    /// For the library: the response has moved on.
    void resetWriteIdleCounter();

    // ---- The exchange ----

    /// The engine's connection handle while the exchange lives, then null. Any thread.
    void* getOpaquePtr() const { return opaquePtr_.load(std::memory_order_acquire); }
    /// For the library.
    void setOpaquePtr(void* pointer);

    /// The exchange has ended, well or not: the engine does not use the request any more. Any thread.
    bool isSchedulerDone() const { return schedulerDone_.load(std::memory_order_acquire); }
    /// Also resets the opaque pointer.
    void setSchedulerDone();

    /// The client has ended its sending after the request, so that there may be nobody left for the answer; or somebody
    /// who says so early and still waits. HttpServerImpl::notifyScheduler() is called when it becomes true. Only with
    /// http::ServerOptions::Waiting::Event; see http::ServerOptions::setEndOnClientClose(). Any thread.
    bool hasClientLeft() const;

    /// What http::ExchangeRecord is to tell beside: who asks through a proxy, and by which id the request is known to
    /// other logs. Any thread, before the response is released; without an observer they are not looked at.
    ///@{
    void setRecordClient(const IpAddress& client);
    void setRecordId(std::string id);
    ///@}

    // ---- The worker thread ----

    /// Registers the calling thread as this request's worker.
    /// @param threadId qlThread::CurrentThreadId().
    void workerThreadStartHandling(const std::string& threadId);
    /// The worker is finished with the request; its idle callback is removed. Release the response first, or let
    /// another thread start handling: the log names a request that nobody has handled or released for 10 s, or 1 s once
    /// something was written.
    void workerThreadStopHandling(const std::string& threadId);
    /// The thread registered as the worker; empty when none is. The worker thread's alone.
    const std::string& getCurrentWorkerThreadId() const { return currentWorkerThreadId_; }

    // The idle callback: runs on the worker thread when updateIdleCallback() finds that a period has passed without a
    // reset. readBytes() drives it, and so may the application's own loops; a body write resets it. In a wait of
    // readBytes() it runs with the feed device's lock held, so it must not touch that device. Nor may it replace or
    // remove itself while it runs: not by setIdleCallback() here, nor elsewhere with a holder that names this request,
    // nor by workerThreadStopHandling().

    /// Installs a callback, or removes it when `callback` is empty.
    /// @param periodMs milliseconds.
    /// @param holder detaches the callback from the request that this holder named before, be it this one: to put
    /// another callback on the same request, reset the holder first. Null leaves the callback stored and at rest until
    /// the period begins again, by resetIdleCallbackTimer() or a body write; it runs at every update then.
    /// @param callNow also run it at once.
    void setIdleCallback(std::function<void()> callback, unsigned int periodMs,
                         std::unique_ptr<IdleCallbackHolder>* holder, bool callNow);
    /// Runs the callback when it is due, then calls notifyScheduler(). Does nothing on any thread but the registered
    /// worker.
    void updateIdleCallback();
    /// The period begins again.
    void resetIdleCallbackTimer();

protected:
    HttpBaseRequest();

    /// The request's body, which lives as long as the request. Make it public for your workers.
    HttpReceiveDevice& editFeedDevice();

    /// Raises the flag; the first message is kept.
    void setParseError(std::string&& message);

    /// Milliseconds from the end of the head to the last time that the engine asked for the response: to the end of the
    /// body at first, then growing until the response is queued. 0 before the body has ended.
    std::uint64_t getHeaderAndBodyReadDurationMs() const {
        return headerAndBodyReadDurationMs_.load(std::memory_order_relaxed);
    }
    /// Milliseconds since the response was queued; 0 before.
    std::uint64_t getHeaderAndResponseWriteDurationMs() const;

private:
    friend struct impl::RequestAccess;

    /// True, and a parse error that begins with `what`, when `text` is not UTF-8 or not printable ASCII.
    /// @param name of what is bad then.
    bool rejectText(ParseErrorKind kind, const char* what, const std::string& text, const std::string& name);

    /// noexcept: a callback whose destructor throws has no one left to tell.
    void removeIdleCallback() noexcept;

    // Atomic is what daemon threads set while the application may look; the rest is constant once handed over, or the
    // worker thread's alone. What is parsed on demand, and the feed device, are constant once they are made.
    std::atomic<void*> opaquePtr_{nullptr};

protected:
    /// For the derived class's own use: the library never looks at it.
    std::int64_t applicationTag_ = -1;

private:
    IpAddress clientAddress_;
    std::unique_ptr<HttpReceiveDevice> feedDevice_;
    std::unique_ptr<HttpResponseDevice> responseDevice_;
    std::atomic<std::uint64_t> headerAndBodyReadDurationMs_{0};
    std::atomic<std::int64_t> responseWriteStartMs_{-1};
    std::uint64_t headerReceivedBytes_ = 0;
    std::atomic<std::uint64_t> headerSentBytes_{0};
    std::string currentWorkerThreadId_;
    qlTimer idleTimer_{false};
    std::function<void()> idleCallback_;
    std::string originalUrl_;
    http::HttpUrl parsedUrl_;
    http::HttpHeaders headers_;
    NamedValues cookies_;
    NamedValues queryParameters_;
    std::string parseError_;

protected:
    /// For the derived class's own use: the library never looks at it.
    qlTimer applicationTimer_{false};

private:
    std::uint32_t idlePeriodMs_ = 0;
    std::atomic<std::uint8_t> writeIdleCounter_{0};
    RequestType requestType_ = RequestType::Unknown;
    bool parseErrorFlag_ = false;
    std::atomic<bool> schedulerDone_{false};
    const std::unique_ptr<impl::RequestState> state_;
};

} // namespace ql
