// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// One of the processes that share rooms, for as long as it has them. Random, so that no two are the same.
using RoomOrigin = std::array<char, 16>;

/// A message into a room, on its way to other processes.
///
/// On the wire: a byte with the version; the origin; its number, with 8 bytes; the kind, a byte; the length of the
/// room's name, with 4 bytes; the name; the message. Numbers have their most significant byte first.
struct RoomFrame {
    RoomOrigin origin{};
    std::uint64_t number = 0; ///< from 1 on, one more for each frame of an origin
    bool isBinary = false;
    std::string_view room;
    std::string_view message;
};

std::string writeRoomFrame(const RoomFrame& frame);

/// Gives the bytes of a frame another number.
void setRoomFrameNumber(std::string& bytes, std::uint64_t number);

/// @return a frame that refers to the bytes, or none.
std::optional<RoomFrame> readRoomFrame(std::string_view bytes);

} // namespace vireo::impl
