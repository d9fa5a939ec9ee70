// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <cstdint>
#include <functional>
#include <string_view>

namespace vireo {

/// Carries what is sent into rooms to the other processes of a service, for Rooms(std::unique_ptr<RoomBus>). A process
/// publishes frames; every process gets those of all, its own as well or not. examples/cluster has one on Redis.
///
/// The Rooms own it: they call start() first and once, stop() last and once, and publish() in between, by one thread at
/// a time. None of these may call the receiver before it returns, and no lock may be held over a call of the receiver
/// that stop() or publish() takes.
///
/// Who can put frames on a bus writes to the clients of every process: keep it among yourselves.
class VIREO_APP_API RoomBus {
public:
    /// Takes a frame that came; never throws. One call at a time, and those of one process in the order in which they
    /// were published there: what comes late is dropped. It sends to the sockets of this process, without waiting for
    /// their clients.
    using Receiver = std::function<void(std::string_view frame)>;

    RoomBus();
    virtual ~RoomBus();
    RoomBus(const RoomBus&) = delete;
    RoomBus& operator=(const RoomBus&) = delete;

    /// Frames go to the receiver from now on. What it throws, the constructor of the Rooms throws, and stop() is not
    /// called then.
    virtual void start(Receiver receiver) = 0;
    /// When it returns, no call of the receiver is under way, and none follows. It may wait for a moment for what was
    /// published last.
    virtual void stop() noexcept = 0;
    /// Hands a frame to the others, each at most once. Must not wait for the network.
    /// @return false when it will not reach them, as while there is no connection. True is no promise.
    virtual bool publish(std::string_view frame) noexcept = 0;
};

/// What has gone over the bus of a Rooms, in frames: one for each message into a room.
struct RoomTraffic {
    std::uint64_t published = 0; ///< that the bus has taken
    std::uint64_t refused = 0;   ///< that it has not
    std::uint64_t received = 0;  ///< of other processes
    std::uint64_t missed = 0;    ///< of other processes, that did not come; known when the next one does
    std::uint64_t malformed = 0; ///< that are none, or of another version of the library
};

} // namespace vireo
