// SPDX-License-Identifier: MIT
#pragma once

#include "engine/Listener.h"
#include "server/Refusals.h"
#include "vireo/support/qlThread.h"
#include "websocket/pool/PollSet.h"
#include "websocket/pool/PollWaker.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace ql::impl {

/// Accepts the connections of listeners, on a thread of its own, on which of the application only observers run.
class Acceptor final : public qlThread {
public:
    /// Takes a connection over. @return false when there is no room for it: it is refused then.
    using Take = std::function<bool(const AcceptedSocket& accepted)>;

    /// @param backlog how many connections may wait at each listener.
    Acceptor(std::vector<std::unique_ptr<Listener>> listeners, std::uint32_t backlog, Take take);
    /// Ends the thread. Those that wait at a listener are reset.
    ~Acceptor() override;

    /// @throws std::system_error when the system has no thread to give.
    void start() { startThread("vireo-accept"); }

    // Any thread.

    /// Accepts those that have come, and then nobody any more.
    void close();
    /// Whether it has come to that.
    bool isClosed() const { return isClosed_; }

protected:
    void run() override;

private:
    enum class Wish { Accept, Close, Stop };

    void ask(Wish wish);
    bool turn();
    void beginToClose(std::int64_t nowMs);
    void wait(std::int64_t nowMs);
    int waitTimeMs(std::int64_t nowMs) const;
    void acceptWaiting();
    void acceptWaitingAt(std::size_t number);
    void take(const AcceptedSocket& accepted) noexcept;
    void pause() noexcept;
    void endWall(std::int64_t nowMs) noexcept;

    bool isPaused(std::int64_t nowMs) const { return nowMs < pausedUntilMs_; }

    const std::uint32_t backlog_;
    const Take take_;
    PollWaker waker_;
    std::atomic<Wish> wish_{Wish::Accept};
    std::atomic<bool> isClosed_{false};

    // The thread's own.

    /// None once they are closed.
    std::vector<std::unique_ptr<Listener>> listeners_;
    PollSet polled_{waker_.signal()};
    Refusals refusals_;
    std::int64_t pausedUntilMs_ = 0;
    /// Since which nobody could be accepted; a wall is over when a turn comes through without a failure.
    std::uint64_t failedTries_ = 0;
    std::int64_t wallSinceMs_ = 0;
    bool isWallLogged_ = false;
    std::int64_t nextWallLogMs_ = 0;
    bool isClosing_ = false;
    std::int64_t closeMs_ = 0;
};

} // namespace ql::impl
