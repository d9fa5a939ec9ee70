// SPDX-License-Identifier: MIT
#pragma once

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
class RoomTable {
public:
    RoomTable();
    ~RoomTable();
    RoomTable(const RoomTable&) = delete;
    RoomTable& operator=(const RoomTable&) = delete;

    Room room(std::string_view name) QL_EXCLUDES(mutex_);
    /// Without those that are to go.
    std::size_t count() QL_EXCLUDES(mutex_);
    /// With them.
    std::size_t heldCount() const QL_EXCLUDES(mutex_);

    /// The table is looked through for rooms that are to go once it is twice as large as it was after the last time,
    /// and so large at least.
    static constexpr std::size_t LeastToSweep = 64;

private:
    /// Lets go of rooms where nobody is, and that nobody holds.
    void sweep() QL_REQUIRES(mutex_);

    mutable qlMutex mutex_;
    std::map<std::string, std::shared_ptr<ql::http::WebSocketGroup>, std::less<>> rooms_ QL_GUARDED_BY(mutex_);
    std::size_t sweepAt_ QL_GUARDED_BY(mutex_) = LeastToSweep;
};

} // namespace vireo::impl
