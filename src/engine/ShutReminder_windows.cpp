#include "engine/ShutReminder.h"

#include "engine/WakingCalls.h"
#include "server/EventServing.h"
#include "websocket/SocketPort.h"

#include <cstring>

#include <NativeSockets.h>
#include <microhttpd.h>

// Wine's WSAPoll() reports nothing of a socket that was shut, neither to who waits already nor to who asks anew, in
// whichever direction and by whichever call it was shut. But the engine closes what is silent for longer than it may
// be, which its thread can change for one connection.

namespace ql::impl {

namespace {

/// The shortest that the engine knows.
constexpr unsigned int SilentSeconds = 1;

/// What a reminder has for the address of its client.
sockaddr_in addressOf(std::uint64_t clientNumber) {
    sockaddr_in address{};
    static_assert(sizeof address.sin_zero == sizeof clientNumber);
    std::memcpy(address.sin_zero, &clientNumber, sizeof clientNumber);
    return address;
}

std::uint64_t clientNumberOf(const sockaddr* reminder) {
    sockaddr_in address{};
    std::memcpy(&address, reminder, sizeof address);
    std::uint64_t clientNumber = 0;
    std::memcpy(&clientNumber, address.sin_zero, sizeof clientNumber);
    return clientNumber;
}

/// A socket of which the engine receives nothing, and so closes it as one whose client has left: an empty datagram is
/// in it. Unlike a stream's, its end keeps no port busy.
/// @return InvalidSocket when there is none to be had.
std::uint64_t openEnded() noexcept {
    const SOCKET opened = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (opened == INVALID_SOCKET) {
        return InvalidSocket;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr* const own = reinterpret_cast<sockaddr*>(&address);
    int size = sizeof address;
    if (::bind(opened, own, size) != 0 || ::getsockname(opened, own, &size) != 0 ||
        ::sendto(opened, "", 0, 0, own, size) != 0) {
        ::closesocket(opened);
        return InvalidSocket;
    }
    return static_cast<std::uint64_t>(opened);
}

bool isReminder(MHD_Connection* connection) noexcept {
    int type = SOCK_STREAM;
    int size = sizeof type;
    ::getsockopt(static_cast<SOCKET>(EngineConnection(connection).socket()), SOL_SOCKET, SO_TYPE,
                 reinterpret_cast<char*>(&type), &size);
    return type == SOCK_DGRAM;
}

void closeSilent(ClientConnection& client) {
    const qlMutexLocker gate(client.gate());
    if (client.isOpen()) {
        MHD_set_connection_option(client.place().connection, MHD_CONNECTION_OPTION_TIMEOUT, SilentSeconds);
    }
}

} // namespace

void remindOfShut(ClientConnection& client) noexcept {
    if (!client.isOpen() || client.place().daemon == nullptr) {
        return;
    }
    const std::uint64_t socket = openEnded();
    if (socket != InvalidSocket) {
        const sockaddr_in address = addressOf(client.number());
        addToEngine(client.place().daemon, socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
}

bool takeReminder(EventServing& serving, MHD_Connection* connection, bool started) noexcept {
    if (!isReminder(connection)) {
        return false;
    }
    if (started) {
        const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
        if (const auto client = serving.connections.find(clientNumberOf(info->client_addr))) {
            closeSilent(*client);
        }
    }
    return true;
}

} // namespace ql::impl
