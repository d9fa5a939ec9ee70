// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/RoomBus.h"
#include "vireo/app/Socket.h"
#include "vireo/app/export.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace vireo {

namespace impl {
class RoomTable;
struct RoomState;
} // namespace impl

/// WebSockets that get the same messages. Members leave by themselves when their connection ends. A value; copies are
/// the same room. Every member may be called from any thread, handlers of WebSockets included, and none waits: who
/// takes too little goes without the message, or is closed, as the options say.
///
/// A room of several processes, of Rooms with a bus, has members in each of them: what is sent goes to those of this
/// process at once, and over the bus to the others, at most once. When one call of send() has returned before another
/// begins, every member that gets both gets them in that order. Everything else is of the members here.
class VIREO_APP_API Room {
public:
    /// A room without a name, of its own.
    Room();
    /// Copies are the same room.
    ///@{
    Room(const Room& other);
    Room& operator=(const Room& other);
    ///@}
    ~Room();

    /// From SocketEvents::onOpen() on.
    /// @return false when it is not open, as before that, or in already.
    bool add(const Socket& socket) const;
    /// @return false when it was not in.
    bool remove(const Socket& socket) const;
    /// Sends a message to all members but `except`, if any: as a rule the sender.
    /// @return how many took it, of those here.
    /// Throws std::invalid_argument for a text that is not UTF-8, and std::bad_alloc; nobody is sent anything then.
    ///@{
    std::size_t send(std::string_view text, const Socket& except = {}) const;
    std::size_t sendBinary(std::span<const unsigned char> bytes, const Socket& except = {}) const;
    ///@}
    /// How many are in, of those here. A snapshot.
    std::size_t size() const;

private:
    friend class impl::RoomTable;

    explicit Room(std::shared_ptr<impl::RoomState> state);

    std::shared_ptr<impl::RoomState> state_;
};

/// Rooms by name, each there as soon as it is asked for: `rooms[request.path("room")].send(text)`. One that is empty,
/// and that no Room stands for, goes by itself. A value; copies are the same rooms. Any thread.
class VIREO_APP_API Rooms {
public:
    Rooms();
    /// Rooms that are the same in all processes whose buses reach each other. Handlers stay as they are: only where the
    /// rooms are made is the bus named. Make them after a fork, and let them end before main() does.
    /// @param bus theirs alone; it ends with the last copy of these rooms and of their Room's.
    /// Throws std::invalid_argument without a bus, and what its start() throws.
    explicit Rooms(std::unique_ptr<RoomBus> bus);
    /// Copies are the same rooms.
    ///@{
    Rooms(const Rooms& other);
    Rooms& operator=(const Rooms& other);
    ///@}
    ~Rooms();

    /// The room of this name.
    Room operator[](std::string_view name) const;
    /// How many there are that somebody is in here, or a Room stands for. A snapshot.
    std::size_t count() const;
    /// What has gone over the bus; zeros without one. A snapshot.
    RoomTraffic traffic() const;

private:
    std::shared_ptr<impl::RoomTable> table_;
};

} // namespace vireo
