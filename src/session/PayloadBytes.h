// SPDX-License-Identifier: MIT
#pragma once

#include "frame/InvalidArgument.h"
#include "frame/Utf8.h"

#include <span>
#include <string_view>

/// Payloads as bytes, and as the texts that they are for applications.
namespace ql::impl {

inline std::span<const unsigned char> bytesOf(std::string_view text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

inline std::string_view textOf(std::span<const unsigned char> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// @throws std::invalid_argument
inline void requireUtf8(std::string_view text) {
    if (findInvalidUtf8(text) != std::string_view::npos) {
        throwInvalidArgument("a text for a WebSocket is not UTF-8");
    }
}

} // namespace ql::impl
