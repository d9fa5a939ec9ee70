// SPDX-License-Identifier: MIT
#pragma once

#include "app/sockets/RoomLink.h"
#include "app/sockets/RoomState.h"
#include "vireo/app/Room.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace vireo::impl {

/// The rooms of a Rooms by their names. Any thread.
class RoomTable : public std::enable_shared_from_this<RoomTable> {
public:
    RoomTable();
    /// With rooms that are joined with those of other processes.
    /// Throws std::invalid_argument without a bus, and what its start() throws.
    explicit RoomTable(std::unique_ptr<RoomBus> bus);
    ~RoomTable();
    RoomTable(const RoomTable&) = delete;
    RoomTable& operator=(const RoomTable&) = delete;

    /// One that is joined with others keeps the table.
    Room room(std::string_view name) QL_EXCLUDES(mutex_);
    /// Without those that are to go.
    std::size_t count() QL_EXCLUDES(mutex_);
    /// With them.
    std::size_t heldCount() const QL_EXCLUDES(mutex_);
    RoomTraffic traffic() const;

    /// The table is looked through for rooms that are to go once it is twice as large as it was after the last time,
    /// and so large at least.
    static constexpr std::size_t LeastToSweep = 64;

private:
    std::shared_ptr<RoomState> stateOf(std::string_view name) QL_EXCLUDES(mutex_);
    /// What another process has sent, to the members here, if there are any.
    void deliver(const RoomFrame& frame) QL_EXCLUDES(mutex_);
    /// Lets go of rooms where nobody is, and that nobody holds.
    void sweep() QL_REQUIRES(mutex_);

    mutable qlMutex mutex_;
    std::map<std::string, std::shared_ptr<RoomState>, std::less<>> rooms_ QL_GUARDED_BY(mutex_);
    std::size_t sweepAt_ QL_GUARDED_BY(mutex_) = LeastToSweep;
    /// Goes first, so that nothing is delivered any more. Null without a bus.
    std::unique_ptr<RoomLink> link_;
};

} // namespace vireo::impl
