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
    qlMutexLocker locker(mutex_);
    serving_.emplace_hint(serving_.end(), number, client);
    const bool isFinishing = isFinishing_;
    locker.unlock();
    if (isFinishing) {
        client->finishExchanges();
    }
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
            endedExchanges_ += last->endedExchanges();
        }
    }
    return last;
}

ConnectionTable::ExchangeCounts ConnectionTable::exchangeCounts() {
    const qlMutexLocker locker(mutex_);
    ExchangeCounts counts{0, endedExchanges_};
    for (const Connections* const connections : {&serving_, &upgraded_}) {
        for (const auto& [number, connection] : *connections) {
            const std::uint64_t ended = connection->endedExchanges();
            counts.ended += ended;
            counts.living += connection->begunExchanges() - ended;
        }
    }
    return counts;
}

void ConnectionTable::finishExchanges() noexcept {
    {
        const qlMutexLocker locker(mutex_);
        isFinishing_ = true;
    }
    // One after the other, without the table's lock and without memory.
    std::shared_ptr<ClientConnection> client = servingBehind(0);
    while (client) {
        client->finishExchanges();
        client = servingBehind(client->number());
    }
}

std::shared_ptr<ClientConnection> ConnectionTable::servingBehind(std::uint64_t number) noexcept {
    const qlMutexLocker locker(mutex_);
    const auto found = serving_.upper_bound(number);
    return found == serving_.end() ? nullptr : found->second;
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
