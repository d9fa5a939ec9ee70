// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/Reserve.h"

#include <memory>
#include <string>

namespace ql {
class HttpBaseRequest;
}

namespace ql::http {

class WebSocket;

/// The application's side of a server. The application derives from it once per server and gives the object to an
/// HttpServer, which owns it.
///
/// A typical request: the head has arrived and a daemon thread calls createRequest(); the library files method, URL,
/// headers, cookies and query parameters in the new object and passes it to handleRequest(), which queues it for a
/// thread of the application's own and returns. That thread marks itself with
/// HttpBaseRequest::workerThreadStartHandling(), reads the body from the feed device, releases the response, writes
/// and ends its body, and calls workerThreadStopHandling(). When the engine has sent the response, or has given up,
/// the request becomes scheduler-done and notifyScheduler() runs. The application deletes the request once it is
/// scheduler-done and no thread of its own works on it any more.
///
/// Which thread calls what, how often, and which of the library's locks it holds meanwhile:
/// - createRequest(): a daemon thread, for each request; none
/// - handleRequest(): a daemon thread, for each request; none
/// - acceptWebSocket(): a daemon thread, for each upgraded connection; none
/// - onServerStopped(): the server thread, for each run of the server; the server's
/// - notifyScheduler(): a daemon thread for each completion, the application worker for each slice of a wait for the
///   body and each idle update; one device's, or none. With ServerOptions::Waiting::Event, a thread of the library's
///   as well for each HttpBaseRequest::hasClientLeft(); none
///
/// Several daemon threads run at once, so every virtual but onServerStopped may overlap with itself and with the
/// others. None of them may start, stop or destroy the server, which waits for the daemon threads when it stops.
/// No exception reaches the engine; each virtual says what becomes of one.
class VIREO_API HttpServerImpl {
public:
    HttpServerImpl();
    virtual ~HttpServerImpl();
    HttpServerImpl(const HttpServerImpl&) = delete;
    HttpServerImpl& operator=(const HttpServerImpl&) = delete;

    /// Makes the object of one request. Daemon thread, once per request, when its head is complete.
    /// @return a new object that belongs to the application: keep track of it from here on, it is handed back in
    /// handleRequest() and must be deleted by the application. If it is null or an exception leaves, that is logged
    /// and the request is answered with 500.
    virtual HttpBaseRequest* createRequest() = 0;

    /// Takes a request over. Daemon thread, once per request, right after its head was filed; its body may still be
    /// on the way. Must return quickly, since every connection of this daemon thread waits meanwhile: queue the
    /// request for a thread of your own. Answering at once is fine when it takes no time.
    ///
    /// A request whose head was bad arrives too: look at HttpBaseRequest::hasParseError() first.
    /// @param request what createRequest() made; valid until the application deletes it.
    /// If an exception leaves, it is logged and the request is answered with 500; the request is still completed and
    /// notified as every other.
    virtual void handleRequest(HttpBaseRequest* request) = 0;

    /// Takes over an upgraded connection. Daemon thread, once per connection, after the 101 response was sent.
    /// @param socket belongs to the application from the call on, typically to a WebSocketThread. If an exception
    /// leaves, it is logged and the pointer is not touched any more.
    virtual void acceptWebSocket(WebSocket* socket) = 0;

    /// The server is stopping, or could not start. Server thread, once per run of the server on every way out, with
    /// the server's lock held: do not call startServer() or stopServer() from here.
    ///
    /// On a clean stop the engine still runs: release or finish the requests still held, for their connections are
    /// cut when this returns, and stop the WebSocket pool and close what it owns, for an upgraded connection must
    /// not be closed once the engine has gone. New requests are refused from before this call on.
    /// If an exception leaves, it is logged and the stop goes on.
    virtual void onServerStopped() = 0;

    /// Asks the application's scheduler to look at its requests again, for instance to collect those whose
    /// isSchedulerDone() has become true. Without arguments: it is only a wake-up.
    ///
    /// Called on a daemon thread when a request has been completed, with the lock of that request's response device
    /// held; and on the application's worker thread, for each slice of a wait in HttpReceiveDevice::readBytes() (all
    /// but the first with the feed device's lock held) and in HttpBaseRequest::updateIdleCallback(). So it must be
    /// cheap, must not touch a body device and must not delete a request: signal a thread that does. A mutex that it
    /// takes must not be held while a request is deleted, for the destructor waits for the device's lock. If an
    /// exception leaves on a daemon thread, it is logged and dropped; on a worker thread it goes through to the
    /// application's own call.
    virtual void notifyScheduler() = 0;

    /// The body of every 500 response that the library makes itself; empty unless the derived class sets it.
    const std::string& getDefaultInternalError() const { return defaultInternalError_; }

    // The library's engine callbacks, for an application that drives a libmicrohttpd daemon of its own. Cast each to
    // the type of the option it is registered for. Closures: an HttpServer (which need not be started) for the access
    // handler and the request-completed callback, null for the others. Register the request-completed callback and
    // the URI log callback whenever the access handler is.

    /// MHD_AccessHandlerCallback
    static void* GetHttpCallback();
    /// MHD_RequestCompletedCallback, for MHD_OPTION_NOTIFY_COMPLETED
    static void* GetRequestCompletedCallback();
    /// The callback of MHD_OPTION_URI_LOG_CALLBACK
    static void* GetUriLogCallback();
    /// MHD_LogCallback, for MHD_OPTION_EXTERNAL_LOGGER
    static void* GetLogFunction();
    /// MHD_NotifyConnectionCallback, for MHD_OPTION_NOTIFY_CONNECTION
    static void* GetConnectionCallback();

protected:
    /// Set it before the server starts: daemon threads read it without a lock.
    void setDefaultInternalError(std::string text);

private:
    std::string defaultInternalError_; // constant while a server runs
    std::unique_ptr<impl::Reserve> reserve_;
};

} // namespace ql::http
