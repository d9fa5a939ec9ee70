// SPDX-License-Identifier: MIT
#pragma once

#include "session/SessionOutput.h"
#include "session/pool/PoolTask.h"
#include "websocket/SocketPort.h"

#include <cstdint>

namespace ql::impl {

/// The end of a connection whose session has gone: what is queued, the close frame last, is sent, and what still comes
/// is read and forgotten, until the peer has everything or the time is over. Where something is unread when a socket is
/// closed, the system takes back what was sent last. Of the thread that serves the session.
class Lingering {
public:
    /// @param isClean the peer has said that it closes, and will send nothing more.
    void begin(bool isClean, std::int64_t untilMs);

    /// @param between the socket to the peer where the engine stands between; else InvalidSocket.
    /// @return with Leave: it is over.
    TurnResult serve(const Turn& turn, SessionOutput& output, std::uint64_t socket, std::uint64_t between);

    /// Where the engine stands between: whether the peer's system has all that was sent.
    bool hasArrived(std::uint64_t socket, std::uint64_t between) const;

private:
    /// @return whether there may be more.
    bool discardInput(const Turn& turn, std::uint64_t socket);

    std::int64_t untilMs_ = 0;
    bool isClean_ = false;
    /// Everything is sent, and the peer told so.
    bool hasSaidAll_ = false;
    bool hasInputEnded_ = false;
    /// Where the engine stands between: the peer's system had everything at that time.
    bool isArrivalSeen_ = false;
};

} // namespace ql::impl
