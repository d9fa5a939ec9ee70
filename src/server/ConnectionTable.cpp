#include "server/ConnectionTable.h"

#include "server/ClientConnection.h"
#include "server/Exchange.h"

namespace ql::impl {

ConnectionTable::~ConnectionTable() = default;

std::shared_ptr<ClientConnection> ConnectionTable::add(EngineConnection connection) {
    return add(connection.socket(), connection.clientAddress(), connection.place());
}

std::shared_ptr<ClientConnection> ConnectionTable::add(std::uint64_t socket, const IpAddress& clientAddress,
                                                       EnginePlace place) {
    std::uint64_t number = 0;
    {
        const qlMutexLocker locker(mutex_);
        number = ++lastNumber_;
    }
    auto client = std::make_shared<ClientConnection>(number, socket, clientAddress, place);
    const qlMutexLocker locker(mutex_);
    connections_.emplace(number, client);
    return client;
}

std::shared_ptr<ClientConnection> ConnectionTable::remove(ClientConnection& connection) noexcept {
    connection.close();
    std::shared_ptr<ClientConnection> last;
    const qlMutexLocker locker(mutex_);
    const auto found = connections_.find(connection.number());
    if (found != connections_.end()) {
        last = std::move(found->second);
        connections_.erase(found);
    }
    return last;
}

std::shared_ptr<ClientConnection> ConnectionTable::find(std::uint64_t number) {
    const qlMutexLocker locker(mutex_);
    const auto found = connections_.find(number);
    return found == connections_.end() ? nullptr : found->second;
}

std::vector<std::shared_ptr<ClientConnection>> ConnectionTable::all() {
    std::vector<std::shared_ptr<ClientConnection>> result;
    const qlMutexLocker locker(mutex_);
    result.reserve(connections_.size());
    for (const auto& [number, connection] : connections_) {
        result.push_back(connection);
    }
    return result;
}

} // namespace ql::impl
