// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpReceiveDevice.h"

#include <cstdint>

namespace ql::impl {

/// Why a feed fails whose request was answered before its body was there.
inline constexpr const char* AnsweredEarly = "AnsweredEarly";

/// What of a request's feed device is for the library alone, of one that can hold a body back. Daemon thread unless it
/// says more.
struct FeedAccess {
    /// Bounds what the device buffers. Before anyone reads.
    /// @throws std::bad_alloc
    static void setWindow(HttpReceiveDevice& device, std::uint64_t bytes);

    /// What a device begins with that nobody has yet. Any thread.
    /// @param windowBytes 0 for none.
    /// @param comesBody false: it has ended.
    /// @throws std::bad_alloc
    static void begin(HttpReceiveDevice& device, std::uint64_t windowBytes, bool comesBody);

    /// Asks for the body, as the first reader does. Any thread; nothing without a window.
    static void accept(HttpReceiveDevice& device);

    /// Whether somebody has come to read, or has asked for the body. Of the first one news is told.
    static bool hasReader(HttpReceiveDevice& device);

    /// Whether a piece may be fed. If not, news is told each time that a reader leaves less than half of the window.
    /// Needs a window.
    static bool hasRoom(HttpReceiveDevice& device, std::uint64_t size);

    /// Whether hasRoom() has found none, and no news was told since. Any device.
    static bool isHeld(HttpReceiveDevice& device);

    /// Unless the body is whole, it stays incomplete: the device error is "lost connection : " followed by `reason`,
    /// where it has none. Pieces may come all the same, and nobody reads them.
    static void fail(HttpReceiveDevice& device, const char* reason) noexcept;
};

} // namespace ql::impl
