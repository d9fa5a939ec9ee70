#include "engine/LingeringSocket.h"

#include "engine/Listener.h"

namespace ql::impl {

LingeringSocket::LingeringSocket(std::uint64_t socket) noexcept : own_(OwnSocket::DuplicateOf(socket)) {
    if (isOpen()) {
        endSending(own_.socket());
    }
}

} // namespace ql::impl
