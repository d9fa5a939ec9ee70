// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

namespace ql::impl {

class PoolListener;

/// What a pool knows of a connection: what to watch its socket for, how to serve it for one turn, how to close it.
/// Every protocol whose connections a pool serves has one implementation.
///
/// For the holder of the connection, unless said otherwise.
class PoolMember {
public:
    PoolMember() = default;
    virtual ~PoolMember() = default;
    PoolMember(const PoolMember&) = delete;
    PoolMember& operator=(const PoolMember&) = delete;

    /// The system's handle; InvalidSocket once closed.
    virtual std::uint64_t getSocket() const = 0;
    /// Whether it waits for room to write. Everybody may change that, and notes it with the waker then.
    virtual bool isWritePending() const = 0;
    /// Whether it has something to do at once, without an event of the socket.
    virtual bool isReadPending() const = 0;

    /// Who is to know from now on that there is something to send, or that it closes; null for nobody.
    virtual void setPollWaker(const std::shared_ptr<PoolListener>& waker) = 0;
    /// An event of the socket: there is something to read, or the peer has closed.
    virtual void noteReadable() = 0;
    /// One turn: sends and receives what it can without waiting. @return false when the connection is to be closed, as
    /// it is when this throws.
    virtual bool serve() = 0;
    /// Ends the connection. Does nothing more on a closed one.
    virtual void close() = 0;
};

} // namespace ql::impl
