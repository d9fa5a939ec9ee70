// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace ql::impl {

/// Carries the bytes of a session, in the place of GnuTLS's own functions. The daemon thread's alone.
///
/// An engine that waits by epoll asks a session whose client is to go on with the handshake again and again, as fast as
/// it can, and at each time GnuTLS computes anew what the handshake comes to: one that stands still takes a core. So a
/// session that is asked once more, though nothing at all has happened on the thread meanwhile, waits for what the
/// engine would wait for.
class TlsTransport {
public:
    /// How long it waits for that at most: what the engine does without an event, such as asking an application that
    /// it polls, is that late while a handshake stands still.
    static constexpr int PatienceMs = 5;

    /// Before the handshake.
    /// @param session GnuTLS's, which this must outlive.
    /// @param events the descriptor by which the daemon waits; without one (-1) nothing is changed.
    void carry(void* session, std::uint64_t socket, int events, int patienceMs = PatienceMs) noexcept;

private:
    struct Calls;

    /// @return whether it has waited.
    bool awaitEvents() noexcept;

    int socket_ = -1;
    int events_ = -1;
    int patienceMs_ = 0;
    bool isInHandshake_ = true;
    /// How much had happened on the thread when this was asked last.
    std::uint64_t seen_ = 0;
};

} // namespace ql::impl
