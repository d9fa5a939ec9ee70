// SPDX-License-Identifier: MIT
#pragma once

namespace ql::impl {

/// What a connection knows of the pool that it was given to.
class PoolListener {
public:
    PoolListener() = default;
    virtual ~PoolListener() = default;
    PoolListener(const PoolListener&) = delete;
    PoolListener& operator=(const PoolListener&) = delete;

    /// The connection has got something to send. Any thread.
    virtual void noteWrite() = 0;
    /// It is about to close its socket. By its holder.
    virtual void noteClose() = 0;
};

} // namespace ql::impl
