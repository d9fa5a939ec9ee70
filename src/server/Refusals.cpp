#include "server/Refusals.h"

#include "engine/Listener.h"
#include "websocket/SocketPort.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace ql::impl {

namespace {

constexpr std::size_t MostLingering = 64;
constexpr std::int64_t LingerMs = 1000;

constexpr std::string_view Answer = "HTTP/1.1 503 Service Unavailable\r\n"
                                    "Connection: close\r\n"
                                    "Retry-After: 1\r\n"
                                    "Content-Length: 0\r\n"
                                    "\r\n";

void answer(std::uint64_t socket) {
    std::array<unsigned char, Answer.size()> bytes;
    std::ranges::copy(Answer, bytes.begin());
    const SocketBuffer buffer{bytes.data(), bytes.size()};
    // It fits into the buffer of a fresh socket; whether the client is still there doesn't matter.
    (void)sendToSocket(socket, SocketBuffers(&buffer, 1));
    endSending(socket);
}

/// Throws away what has come. @return whether the client may still be there.
bool skip(std::uint64_t socket) {
    std::array<unsigned char, 65536> bytes;
    const SocketBuffer buffer{bytes.data(), bytes.size()};
    const std::int64_t received = receiveFromSocket(socket, SocketBuffers(&buffer, 1));
    return received > 0 || (received < 0 && isWouldBlock(lastSocketError()));
}

} // namespace

Refusals::~Refusals() {
    while (!isEmpty()) {
        closeOldest();
    }
}

void Refusals::add(std::uint64_t socket, std::int64_t nowMs) {
    lingering_.push_back({socket, nowMs + LingerMs});
    answer(socket);
    if (lingering_.size() > MostLingering) {
        closeOldest();
    }
}

void Refusals::look(std::int64_t nowMs) {
    std::erase_if(lingering_, [nowMs](const Lingering& lingering) {
        const bool stays = nowMs < lingering.untilMs && skip(lingering.socket);
        if (!stays) {
            closeSocket(lingering.socket);
        }
        return !stays;
    });
}

void Refusals::closeOldest() {
    closeSocket(lingering_.front().socket);
    lingering_.pop_front();
}

} // namespace ql::impl
