// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What ClientSocket asks of the system. None of these calls waits but awaitSocket().
namespace vireo::impl {

/// An address as the system has it, with its family first.
using NativeAddress = std::vector<char>;

/// Those of a host, in the order in which they are to be tried.
std::vector<NativeAddress> addressesOf(const std::string& host, const std::string& port);

/// Begins to connect. @return none where that cannot be.
std::optional<std::uintptr_t> beginConnection(const NativeAddress& address);
/// Whether a connection that awaitSocket() has found ready is there.
bool isConnected(std::uintptr_t socket);

/// What a transfer has come to; 0 with Done is the peer's end.
struct TransferResult {
    enum class Outcome { Done, WouldBlock, Broken } outcome;
    std::size_t bytes;
};
TransferResult sendSome(std::uintptr_t socket, std::string_view bytes);
TransferResult receiveSome(std::uintptr_t socket, std::span<char> room);

enum class SocketReady { ToReceive, ToSend, ToEither };
/// @return false when the time is over.
bool awaitSocket(std::uintptr_t socket, SocketReady what, std::chrono::milliseconds time);

/// @param withReset drops what is queued, and tells the peer so.
void closeSocket(std::uintptr_t socket, bool withReset);

} // namespace vireo::impl
