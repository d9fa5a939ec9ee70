// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <memory>
#include <span>
#include <string_view>

namespace ql::impl {
class SharedMessage;
} // namespace ql::impl

namespace ql::http {

/// A message for many: encoded once, and compressed at most once for each size of window among the receivers. Copies
/// share it, and so do the queues of all connections it waits in. Constant; any thread.
///
/// A value. One that was moved from may only be assigned to or destroyed.
class VIREO_API WebSocketMessage {
public:
    /// @throws std::invalid_argument when it is not UTF-8; std::bad_alloc.
    static WebSocketMessage Text(std::string_view text);
    /// @throws std::bad_alloc
    static WebSocketMessage Binary(std::span<const unsigned char> bytes);

    /// Shares, or takes over.
    ///@{
    WebSocketMessage(const WebSocketMessage& other);
    WebSocketMessage(WebSocketMessage&& other) noexcept;
    WebSocketMessage& operator=(const WebSocketMessage& other);
    WebSocketMessage& operator=(WebSocketMessage&& other) noexcept;
    ///@}
    ~WebSocketMessage();

private:
    friend class impl::SharedMessage;

    explicit WebSocketMessage(std::shared_ptr<impl::SharedMessage> shared);

    std::shared_ptr<impl::SharedMessage> shared_;
};

} // namespace ql::http
