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
    serving_.emplace_hint(serving_.end(), number, client);
    return client;
}

void ConnectionTable::noteUpgrade(const ClientConnection& connection) noexcept {
    const qlMutexLocker locker(mutex_);
    upgraded_.insert(serving_.extract(connection.number()));
}

std::shared_ptr<ClientConnection> ConnectionTable::remove(ClientConnection& connection) noexcept {
    connection.close();
    std::shared_ptr<ClientConnection> last;
    const qlMutexLocker locker(mutex_);
    for (Connections* const connections : {&serving_, &upgraded_}) {
        if (auto node = connections->extract(connection.number())) {
            last = std::move(node.mapped());
        }
    }
    return last;
}

std::shared_ptr<ClientConnection> ConnectionTable::find(std::uint64_t number) {
    const qlMutexLocker locker(mutex_);
    for (const Connections* const connections : {&serving_, &upgraded_}) {
        const auto found = connections->find(number);
        if (found != connections->end()) {
            return found->second;
        }
    }
    return nullptr;
}

std::vector<std::shared_ptr<ClientConnection>> ConnectionTable::all() {
    std::vector<std::shared_ptr<ClientConnection>> result;
    const qlMutexLocker locker(mutex_);
    result.reserve(serving_.size() + upgraded_.size());
    for (const Connections* const connections : {&serving_, &upgraded_}) {
        for (const auto& [number, connection] : *connections) {
            result.push_back(connection);
        }
    }
    return result;
}

} // namespace ql::impl
