// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketHandle.h"
#include "vireo/WebSocketMessage.h"
#include "vireo/export.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

namespace ql::impl {
class GroupState;
} // namespace ql::impl

namespace ql::http {

/// Connections that get the same messages: a room. Each message is encoded once for all and shared by the queues that
/// it waits in. Members whose session ends leave by themselves. Connections may be in several groups, of several
/// servers.
///
/// Every member may be called from any thread, callbacks of sessions included. The messages of one thread arrive in
/// their order. Sending never waits: a member whose queue is full and whose policy is to wait goes without the message,
/// and is not counted. A message that is sent while a connection is taken in or out may reach it or not.
class VIREO_API WebSocketGroup {
public:
    WebSocketGroup();
    /// Lets go of the members, whose connections go on.
    ~WebSocketGroup();
    WebSocketGroup(const WebSocketGroup&) = delete;
    WebSocketGroup& operator=(const WebSocketGroup&) = delete;

    /// Takes a connection in, once.
    /// @return false when it is not open, as before WebSocketSession::onOpen(), or in already.
    /// @throws std::bad_alloc and it is not in.
    bool add(const WebSocketHandle& member);
    /// @return false when it was not in.
    /// @throws std::bad_alloc and it is in still.
    bool remove(const WebSocketHandle& member);
    /// How many are in. A snapshot.
    std::size_t size() const;

    /// Sends a message to all members.
    /// @param except one that goes without it, as a rule the sender; by default nobody.
    /// @return how many took it.
    /// @throws std::invalid_argument when a text is not UTF-8; std::bad_alloc, before anybody was sent anything. A
    /// member for which there is no memory goes without it.
    ///@{
    std::size_t sendText(std::string_view text, const WebSocketHandle& except = {});
    std::size_t sendBinary(std::span<const unsigned char> bytes, const WebSocketHandle& except = {});
    std::size_t send(const WebSocketMessage& message, const WebSocketHandle& except = {});
    ///@}

private:
    std::unique_ptr<impl::GroupState> state_;
};

} // namespace ql::http
