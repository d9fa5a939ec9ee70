#pragma once

#include "engine/UpgradeHandle.h"
#include "websocket/SocketPort.h"
#include "websocket/TestSockets.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace wstest {

/// Long enough for the slowest machine; only a failing test waits it out.
constexpr std::chrono::seconds Patience{60};

/// Counts, and lets threads wait for a count.
class Counter {
public:
    void add() {
        // With the lock held: who waits for the count may then destroy the counter.
        const std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    std::size_t count() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return count_;
    }
    /// @return false when the count is not reached in time.
    bool waitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, Patience, [&] { return count_ >= count; });
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t count_ = 0;
};

/// Stands in for the engine's handle of a connection: counts how often it was closed, and closes the socket then.
struct UpgradeHandle {
    SocketPair sockets;
    Counter closes;
};

/// Makes upgradeCloser expect UpgradeHandles.
class FakeEngine {
public:
    FakeEngine() : previous_(ql::impl::upgradeCloser.exchange(&close)) {}
    ~FakeEngine() { ql::impl::upgradeCloser = previous_; }
    FakeEngine(const FakeEngine&) = delete;
    FakeEngine& operator=(const FakeEngine&) = delete;

private:
    static void close(void* handle) {
        UpgradeHandle& upgrade = *static_cast<UpgradeHandle*>(handle);
        upgrade.sockets.closeServer();
        upgrade.closes.add();
    }
    ql::impl::UpgradeCloser previous_;
};

/// Puts functions of the test in front of the system's socket calls while it lives. Those not set go through, also past
/// one that was there before.
class FakeSystem {
public:
    FakeSystem();
    ~FakeSystem();
    FakeSystem(const FakeSystem&) = delete;
    FakeSystem& operator=(const FakeSystem&) = delete;

    std::function<std::int64_t(std::uint64_t, ql::impl::SocketBuffers)> receive;
    std::function<std::int64_t(std::uint64_t, ql::impl::SocketBuffers)> send;
    std::function<int(void*, std::size_t, int)> poll;

private:
    FakeSystem* const previous_;
};

/// Makes each poll call of the pool wait for events or a wake-up, as if it had no time limit. While it lives, a test
/// that needs a wake-up and gets none fails after Patience.
class UnlimitedPolls {
public:
    UnlimitedPolls();

    Counter begun;
    /// To put functions in front of the other calls.
    FakeSystem system;
};

/// A socket that follows a script and needs no peer. For one thread.
class ScriptedSocket {
public:
    ScriptedSocket();

    /// What the next receive calls do. At the end of the script they would block.
    void willReceive(Bytes bytes);
    void willReceiveError(SocketError error);
    void peerWillClose();
    /// What the next send calls do. At the end of the script everything is accepted.
    void willAccept(std::uint64_t bytes);
    void willRefuse(SocketError error);

    /// The room that each receive call offered.
    std::vector<std::uint64_t> receiveSizes;
    /// What each send call offered.
    std::vector<Bytes> sendOffers;
    Bytes sent;

private:
    struct ReceiveStep {
        Bytes bytes;
        bool fails = false;
        SocketError error{};
    };
    struct SendStep {
        std::uint64_t accepted = 0;
        bool fails = false;
        SocketError error{};
    };
    std::int64_t receive(ql::impl::SocketBuffers buffers);
    std::int64_t send(ql::impl::SocketBuffers buffers);

    std::deque<ReceiveStep> receives_;
    std::deque<SendStep> sends_;
    FakeSystem system_;
};

} // namespace wstest
