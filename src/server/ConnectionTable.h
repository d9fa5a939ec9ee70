// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace ql::impl {

class ClientConnection;

/// The connections of one run of a server, by their numbers.
class ConnectionTable {
public:
    ConnectionTable() = default;
    ~ConnectionTable();
    ConnectionTable(const ConnectionTable&) = delete;
    ConnectionTable& operator=(const ConnectionTable&) = delete;

    /// The engine has taken a connection. Daemon threads.
    /// @throws std::bad_alloc, and what makes connection ids does.
    ///@{
    std::shared_ptr<ClientConnection> add(EngineConnection connection) QL_EXCLUDES(mutex_);
    std::shared_ptr<ClientConnection> add(std::uint64_t socket, const IpAddress& clientAddress, EnginePlace place = {})
        QL_EXCLUDES(mutex_);
    ///@}

    /// It is a WebSocket's from now on, and none of those() any more. Daemon threads.
    void noteUpgrade(const ClientConnection& connection) noexcept QL_EXCLUDES(mutex_);
    /// It is closed. Daemon threads.
    /// @return the same; null when it is not there.
    std::shared_ptr<ClientConnection> remove(ClientConnection& connection) noexcept QL_EXCLUDES(mutex_);

    // Any thread.

    struct ExchangeCounts {
        std::uint64_t living = 0;
        std::uint64_t ended = 0;
    };

    /// Of all connections that there were.
    ExchangeCounts exchangeCounts() QL_EXCLUDES(mutex_);

    /// From now on no connection is suspended, neither of those that there are nor a later one: an engine must not be
    /// stopped with one that is. Under no lock of a device.
    void finishExchanges() noexcept QL_EXCLUDES(mutex_);

    /// Null when it is not there any more.
    std::shared_ptr<ClientConnection> find(std::uint64_t number) QL_EXCLUDES(mutex_);
    /// Those of this moment.
    std::vector<std::shared_ptr<ClientConnection>> all() QL_EXCLUDES(mutex_);
    /// Those that are wanted of them, but for the WebSockets', which cost nothing here. That is asked under the table's
    /// lock, so that those that are not wanted cost little.
    /// @param isWanted takes a ClientConnection&; takes no lock.
    /// @throws std::bad_alloc
    template <typename Predicate>
    std::vector<std::shared_ptr<ClientConnection>> those(Predicate isWanted) QL_EXCLUDES(mutex_) {
        std::vector<std::shared_ptr<ClientConnection>> result;
        const qlMutexLocker locker(mutex_);
        for (const auto& [number, connection] : serving_) {
            if (isWanted(*connection)) {
                result.push_back(connection);
            }
        }
        return result;
    }

private:
    /// The first one behind this number of those that serve; null behind the last.
    std::shared_ptr<ClientConnection> servingBehind(std::uint64_t number) noexcept QL_EXCLUDES(mutex_);

    /// Ordered: a connection moves from one to the other without memory.
    using Connections = std::map<std::uint64_t, std::shared_ptr<ClientConnection>>;

    qlMutex mutex_;
    std::uint64_t lastNumber_ QL_GUARDED_BY(mutex_) = 0;
    Connections serving_ QL_GUARDED_BY(mutex_);
    Connections upgraded_ QL_GUARDED_BY(mutex_);
    /// Of connections that were closed.
    std::uint64_t endedExchanges_ QL_GUARDED_BY(mutex_) = 0;
    bool isFinishing_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace ql::impl
