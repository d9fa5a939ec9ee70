// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Socket.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

namespace vireo::impl {

/// What SocketEvents was told.
struct SocketHandlers {
    std::function<void(Socket&)> onOpen;
    std::function<void(Socket&, std::string_view)> onText;
    std::function<void(Socket&, std::span<const unsigned char>)> onBinary;
    std::function<void(Socket&)> onDrained;
    std::function<void(Socket&, std::uint16_t, std::string_view)> onClose;
};

} // namespace vireo::impl
