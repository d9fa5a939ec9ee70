// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <string_view>

namespace ql {
class HttpBaseRequest;
}

namespace ql::http {

/// Is told of what becomes of each request that HttpServerImpl::createRequest() has made, so that an application needs
/// no list of its requests that notifyScheduler() goes through, and no thread that waits for a body. The application
/// derives from it and gives it to ServerOptions::setRequestOwner(); the server, and each copy of the options, holds
/// it.
///
/// Both virtuals are called on daemon threads, those of one request one after the other, of several requests at once,
/// with no lock held, and must return quickly, since every connection of that daemon thread waits meanwhile.
///
/// A request whose body has to come, for which HttpBaseRequest::acceptBody() was called inside handleRequest() or
/// later, is always told of: by onBodyReady(), or by onRequestDone() where that never came to be.
class VIREO_API RequestOwner {
public:
    RequestOwner();
    virtual ~RequestOwner();
    RequestOwner(const RequestOwner&) = delete;
    RequestOwner& operator=(const RequestOwner&) = delete;

    /// The request's body is there: whole, or as much of it as is kept (ServerOptions::setUploadWindowBytes()), and
    /// more comes only once it is read. At most once for a request, after handleRequest(), and not for one that has no
    /// body, was answered, or whose body will never be whole. What is released here goes out in the same call of the
    /// engine. The default does nothing.
    ///
    /// What it throws is logged, and the client gets a 500.
    /// @param isWhole whether reading it never waits.
    virtual void onBodyReady(HttpBaseRequest& request, bool isWhole);

    /// The request has ended, well or not: it is scheduler-done, and the library does not look at it any more, so that
    /// it may be deleted here. Exactly once for each, also where handleRequest() has thrown. Other threads of the
    /// application may still be at work on it.
    ///
    /// What it throws is logged and dropped.
    /// @param lossReason why its answer was cut short, in the word that stands behind "lost connection : " in the
    /// device errors; empty when it was not. Lives as long as the call.
    virtual void onRequestDone(HttpBaseRequest& request, std::string_view lossReason) = 0;

private:
    // Room for later versions.
    virtual void reserved1();
    virtual void reserved2();
    virtual void reserved3();
    virtual void reserved4();
};

} // namespace ql::http
