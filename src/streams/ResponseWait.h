// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// How a daemon thread waits for what an application has not given yet: a response, or more of its body. The engine
/// asks for it again and again; at each of its calls one of these is told what came of it. Daemon threads only, but for
/// news().
class ResponseWait {
public:
    virtual ~ResponseWait() = default;

    /// There was something to do for an exchange.
    virtual void progress() = 0;

    /// So many bytes of the answer's body were given to the engine.
    virtual void gave(std::uint64_t /*bytes*/) {}

    /// There was nothing to do for this request's exchange, and the engine is about to be told to ask again. No lock is
    /// held, so that what is waited for may have come meanwhile.
    /// @param nowMs what qlSystemUtils::GetTimeBaseMs() has just said.
    virtual void wait(HttpBaseRequest& request, std::int64_t nowMs) = 0;

    /// The engine is about to be told that the body has ended, or failed.
    virtual void ending() noexcept {}

    /// There is something for the daemon thread to look at, which it can see by now. Any thread. Nothing where the
    /// engine asks anyway.
    virtual void news() noexcept {}
};

/// Tells it to what waits for the request. Under the lock of a device of the request, which keeps the request; or on
/// a thread of the application, which does so, too.
void tellNews(HttpBaseRequest& request) noexcept;

} // namespace ql::impl
