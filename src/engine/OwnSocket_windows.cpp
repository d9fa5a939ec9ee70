#include "engine/OwnSocket.h"

#include "websocket/SocketPort.h"

#include <NativeSockets.h>
#include <WindowsHeaders.h>

namespace ql::impl {

std::uint64_t duplicateSocket(std::uint64_t socket) noexcept {
    WSAPROTOCOL_INFOW info{};
    if (::WSADuplicateSocketW(static_cast<SOCKET>(socket), ::GetCurrentProcessId(), &info) != 0) {
        return InvalidSocket;
    }
    const SOCKET duplicate = ::WSASocketW(FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO, &info, 0,
                                          WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    u_long nonBlocking = 1;
    (void)::ioctlsocket(duplicate, static_cast<long>(FIONBIO), &nonBlocking);
    return static_cast<std::uint64_t>(duplicate);
}

} // namespace ql::impl
