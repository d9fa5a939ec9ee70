// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// How a daemon thread waits for what an application has not given yet: a response, or more of its body. The engine
/// asks for it again and again; at each of its calls one of these is told what came of it. Daemon threads only.
class ResponseWait {
public:
    virtual ~ResponseWait() = default;

    /// There was something to do for an exchange.
    virtual void progress() = 0;

    /// There was nothing to do for this request's exchange, and the engine is about to be told to ask again. No lock is
    /// held, so that what is waited for may have come meanwhile.
    /// @param nowMs what qlSystemUtils::GetTimeBaseMs() has just said.
    virtual void wait(HttpBaseRequest& request, std::int64_t nowMs) = 0;
};

} // namespace ql::impl
