// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// Marks the calling thread, while it lives, as a daemon thread inside a call of the engine.
class DaemonCall {
public:
    DaemonCall();
    ~DaemonCall();
    DaemonCall(const DaemonCall&) = delete;
    DaemonCall& operator=(const DaemonCall&) = delete;

    /// Whether the calling thread is inside one.
    static bool isUnderWay();

private:
    /// The thread's own, looked up once.
    bool& mark_;
    const bool isNested_;
};

} // namespace ql::impl
