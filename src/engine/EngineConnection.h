// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/IpAddress.h"

#include <functional>
#include <string_view>

struct MHD_Connection;

namespace ql::impl {

struct ConnectionRecord;

/// Where a value that belongs to a request's head stands.
enum class ValueKind {
    Header,
    Cookie,
    QueryParameter,
};

/// A view of one connection of the engine, with the request that is on it. Daemon thread only.
class EngineConnection {
public:
    explicit EngineConnection(MHD_Connection* connection) : connection_(connection) {}

    /// A header of the request; with a null pointer inside when it is missing. Lives as long as the request.
    std::string_view header(const char* name) const;

    /// Called with a name and a value, which is null when there is none. Must not throw.
    using ValueVisitor = std::function<void(ValueKind kind, const char* name, const char* value)>;

    /// Visits the request's headers, cookies and query parameters in the order of the engine's list.
    void visitValues(const ValueVisitor& visitor) const;

    /// The peer's address; empty when the engine knows none.
    IpAddress clientAddress() const;

    /// Null when the connection is not tracked.
    ConnectionRecord* record() const;

    MHD_Connection* handle() const { return connection_; }

private:
    MHD_Connection* connection_;
};

} // namespace ql::impl
