#include "vireo/app/Room.h"

#include "app/sockets/RoomTable.h"
#include "app/sockets/SocketAccess.h"
#include "vireo/WebSocketGroup.h"

#include <algorithm>
#include <utility>

namespace vireo {

namespace impl {

RoomTable::RoomTable() = default;

RoomTable::~RoomTable() = default;

Room RoomTable::room(std::string_view name) {
    const qlMutexLocker lock(mutex_);
    const auto found = rooms_.find(name);
    if (found != rooms_.end()) {
        return Room(found->second);
    }
    if (rooms_.size() >= sweepAt_) {
        sweep();
    }
    return Room(rooms_.emplace(name, std::make_shared<ql::http::WebSocketGroup>()).first->second);
}

std::size_t RoomTable::count() {
    const qlMutexLocker lock(mutex_);
    sweep();
    return rooms_.size();
}

std::size_t RoomTable::heldCount() const {
    const qlMutexLocker lock(mutex_);
    return rooms_.size();
}

void RoomTable::sweep() {
    // Who holds one elsewhere may take a socket in; nobody gets hold of one but under the lock.
    std::erase_if(rooms_, [](const auto& room) { return room.second.use_count() == 1 && room.second->size() == 0; });
    sweepAt_ = std::max(LeastToSweep, 2 * rooms_.size());
}

} // namespace impl

using impl::SocketAccess;

Room::Room() : group_(std::make_shared<ql::http::WebSocketGroup>()) {}
Room::Room(std::shared_ptr<ql::http::WebSocketGroup> group) : group_(std::move(group)) {}
Room::Room(const Room& other) = default;
Room& Room::operator=(const Room& other) = default;
Room::~Room() = default;

bool Room::add(const Socket& socket) const {
    return group_->add(SocketAccess::handle(socket));
}

bool Room::remove(const Socket& socket) const {
    return group_->remove(SocketAccess::handle(socket));
}

std::size_t Room::send(std::string_view text, const Socket& except) const {
    return group_->sendText(text, SocketAccess::handle(except));
}

std::size_t Room::sendBinary(std::span<const unsigned char> bytes, const Socket& except) const {
    return group_->sendBinary(bytes, SocketAccess::handle(except));
}

std::size_t Room::size() const {
    return group_->size();
}

Rooms::Rooms() : table_(std::make_shared<impl::RoomTable>()) {}
Rooms::Rooms(const Rooms& other) = default;
Rooms& Rooms::operator=(const Rooms& other) = default;
Rooms::~Rooms() = default;

Room Rooms::operator[](std::string_view name) const {
    return table_->room(name);
}

std::size_t Rooms::count() const {
    return table_->count();
}

} // namespace vireo
