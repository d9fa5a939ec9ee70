// SPDX-License-Identifier: MIT
#pragma once

#include "engine/SocketAddress.h"
#include "vireo/HeaderLine.h"
#include "vireo/support/IpAddress.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

struct MHD_Connection;
struct MHD_Daemon;

namespace ql::impl {

struct ConnectionRecord;

/// Where a value that belongs to a request's head stands.
enum class ValueKind {
    Header,
    Cookie,
    QueryParameter,
};

/// The ends of a connection, but for the client's address.
struct ConnectionEnds {
    std::uint16_t clientPort = 0; ///< 0 when it is not known
    IpAddress localAddress;       ///< empty when it is not known
    std::uint16_t localPort = 0;
    bool isUnix = false; ///< of a Unix socket, which has no addresses
};

/// Asks the system. @param client the peer's address; none when it is not known.
ConnectionEnds endsOf(std::uint64_t socket, const SocketAddress& client);

/// Where the engine has a connection.
struct EnginePlace {
    MHD_Daemon* daemon = nullptr;
    /// The daemon thread's alone.
    MHD_Connection* connection = nullptr;
};

/// How a connection is put aside and taken up again.
struct SuspensionCalls {
    void (*suspend)(MHD_Connection* connection);
    void (*resume)(MHD_Connection* connection);
};

/// By the engine. Tests that have no engine put calls of their own here.
extern std::atomic<const SuspensionCalls*> suspensionCalls;

/// A view of one connection of the engine, with the request that is on it. Daemon thread only, but for resume().
class EngineConnection {
public:
    explicit EngineConnection(MHD_Connection* connection) : connection_(connection) {}

    /// A header of the request; with a null pointer inside when it is missing. Lives as long as the request.
    std::string_view header(const char* name) const;

    /// The request's headers in the order in which they came. They live as long as the request.
    /// @throws std::bad_alloc
    std::vector<HeaderLine> headers() const;

    /// Called with a name and a value, which is null when there is none. Must not throw.
    using ValueVisitor = std::function<void(ValueKind kind, const char* name, const char* value)>;

    /// Visits the request's headers, cookies and query parameters in the order of the engine's list.
    void visitValues(const ValueVisitor& visitor) const;

    /// The peer's address; empty when the engine knows none.
    IpAddress clientAddress() const;
    ConnectionEnds ends() const;

    /// Bytes of the request's head, with all its line ends; 0 before it is complete.
    std::uint64_t headBytes() const;
    /// How long the request's body is to be, as far as its head says; 0 without one, none when only its end tells.
    std::optional<std::uint64_t> announcedBodyBytes() const;
    /// The status of the answer that the engine holds, be it its own; 0 for none.
    std::uint32_t answerStatus() const;

    /// Null when the connection is not tracked.
    ConnectionRecord* record() const;

    /// InvalidSocket when the engine does not tell.
    std::uint64_t socket() const;

    /// GnuTLS's, of a connection over TLS; not once the engine is about to close it.
    void* tlsSession() const;

    /// Whether its daemon is told of bytes once, by an edge, and not for as long as they are there.
    bool isToldByEdges() const;

    /// The engine leaves the connection alone until resume(). Only for what Suspension allows.
    void suspend() const noexcept { suspensionCalls.load()->suspend(connection_); }
    /// Any thread.
    void resume() const noexcept { suspensionCalls.load()->resume(connection_); }

    EnginePlace place() const;
    MHD_Connection* handle() const { return connection_; }

private:
    SocketAddress client() const;

    MHD_Connection* connection_;
};

} // namespace ql::impl
