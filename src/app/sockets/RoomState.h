// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketGroup.h"

#include <string>

namespace vireo::impl {

class RoomLink;

/// What the copies of a Room share.
struct RoomState {
    ql::http::WebSocketGroup group;
    std::string name;
    /// What joins it with the rooms of other processes, or null. Who holds the room through a Room holds the table, and
    /// with it the link.
    RoomLink* link = nullptr;
};

} // namespace vireo::impl
