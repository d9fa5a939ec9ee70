#include "vireo/app/Room.h"

#include "app/sockets/RoomTable.h"
#include "app/sockets/SocketAccess.h"
#include "vireo/WebSocketGroup.h"

#include <algorithm>
#include <utility>

namespace vireo {

namespace impl {

namespace {

/// What a Room of several processes stands for.
struct HeldRoom {
    std::shared_ptr<RoomTable> table;
    std::shared_ptr<RoomState> state;
};

} // namespace

RoomTable::RoomTable() = default;

RoomTable::RoomTable(std::unique_ptr<RoomBus> bus)
    : link_(std::make_unique<RoomLink>(std::move(bus), [this](const RoomFrame& frame) { deliver(frame); })) {}

RoomTable::~RoomTable() = default;

Room RoomTable::room(std::string_view name) {
    std::shared_ptr<RoomState> state = stateOf(name);
    if (!link_) {
        return Room(std::move(state));
    }
    RoomState* const itself = state.get();
    return Room(
        std::shared_ptr<RoomState>(std::make_shared<HeldRoom>(HeldRoom{shared_from_this(), std::move(state)}), itself));
}

std::shared_ptr<RoomState> RoomTable::stateOf(std::string_view name) {
    const qlMutexLocker lock(mutex_);
    const auto found = rooms_.find(name);
    if (found != rooms_.end()) {
        return found->second;
    }
    if (rooms_.size() >= sweepAt_) {
        sweep();
    }
    auto state = std::make_shared<RoomState>();
    state->name = name;
    state->link = link_.get();
    return rooms_.emplace(name, std::move(state)).first->second;
}

void RoomTable::deliver(const RoomFrame& frame) {
    std::shared_ptr<RoomState> state;
    {
        const qlMutexLocker lock(mutex_);
        const auto found = rooms_.find(frame.room);
        if (found == rooms_.end()) {
            return;
        }
        state = found->second;
    }
    if (frame.isBinary) {
        state->group.sendBinary({reinterpret_cast<const unsigned char*>(frame.message.data()), frame.message.size()});
    } else {
        state->group.sendText(frame.message);
    }
}

RoomTraffic RoomTable::traffic() const {
    return link_ ? link_->traffic() : RoomTraffic();
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
    std::erase_if(rooms_,
                  [](const auto& room) { return room.second.use_count() == 1 && room.second->group.size() == 0; });
    sweepAt_ = std::max(LeastToSweep, 2 * rooms_.size());
}

} // namespace impl

using impl::SocketAccess;

namespace {

/// Sends a message to the members here, and to those of other processes where there are any.
/// @param sendHere what sends it to the members here; may throw, and then nobody else gets it either.
template <class SendHere>
std::size_t sendToAll(const impl::RoomState& state, bool isBinary, std::string_view message, SendHere sendHere) {
    if (state.link == nullptr) {
        return sendHere();
    }
    std::string frame = state.link->frameOf(state.name, isBinary, message);
    const std::size_t count = sendHere();
    state.link->publish(std::move(frame));
    return count;
}

} // namespace

Room::Room() : state_(std::make_shared<impl::RoomState>()) {}
Room::Room(std::shared_ptr<impl::RoomState> state) : state_(std::move(state)) {}
Room::Room(const Room& other) = default;
Room& Room::operator=(const Room& other) = default;
Room::~Room() = default;

bool Room::add(const Socket& socket) const {
    return state_->group.add(SocketAccess::handle(socket));
}

bool Room::remove(const Socket& socket) const {
    return state_->group.remove(SocketAccess::handle(socket));
}

std::size_t Room::send(std::string_view text, const Socket& except) const {
    return sendToAll(*state_, false, text, [&] { return state_->group.sendText(text, SocketAccess::handle(except)); });
}

std::size_t Room::sendBinary(std::span<const unsigned char> bytes, const Socket& except) const {
    return sendToAll(*state_, true, {reinterpret_cast<const char*>(bytes.data()), bytes.size()},
                     [&] { return state_->group.sendBinary(bytes, SocketAccess::handle(except)); });
}

std::size_t Room::size() const {
    return state_->group.size();
}

Rooms::Rooms() : table_(std::make_shared<impl::RoomTable>()) {}
Rooms::Rooms(std::unique_ptr<RoomBus> bus) : table_(std::make_shared<impl::RoomTable>(std::move(bus))) {}
Rooms::Rooms(const Rooms& other) = default;
Rooms& Rooms::operator=(const Rooms& other) = default;
Rooms::~Rooms() = default;

Room Rooms::operator[](std::string_view name) const {
    return table_->room(name);
}

std::size_t Rooms::count() const {
    return table_->count();
}

RoomTraffic Rooms::traffic() const {
    return table_->traffic();
}

} // namespace vireo
