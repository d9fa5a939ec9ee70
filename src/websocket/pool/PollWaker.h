// SPDX-License-Identifier: MIT
#pragma once

#include "websocket/SocketPort.h"
#include "websocket/pool/PoolListener.h"

#include <atomic>

namespace ql::impl {

/// How other threads reach a poll thread that may be waiting in its poll call. Costs them a system call only if it is,
/// and only the first of them. Outlives the pool as long as a connection knows it.
class PollWaker final : public PoolListener {
public:
    /// There is something new for the poll thread: ends its wait. Any thread.
    void wake() {
        // If it isn't waiting, it looks at everything again before it does.
        State expected = State::Waiting;
        if (state_.compare_exchange_strong(expected, State::Woken)) {
            signal_.raise();
        }
    }

    /// A connection of the pool has got something to send. Any thread.
    void noteWrite() override {
        // Reads as well, so that whoever takes the note sees what each of several writers did before.
        writeNoted_.exchange(true);
        wake();
    }

    /// Of no interest: who holds a connection has it to himself, and the poll thread doesn't watch it meanwhile.
    void noteClose() override {}

    // The rest is for the poll thread.

    /// Before the first wait. Until then nobody is woken.
    void open() { signal_.open(); }
    const WakeSignal& signal() const { return signal_; }

    /// From here on wake() ends the wait, also one that has yet to begin: what is new after this call is noticed in
    /// time, and what was new before it is for the caller to see now.
    void beginWait() { state_ = State::Waiting; }
    void endWait() { state_ = State::Awake; }

    /// Whether noteWrite() was called since the last time.
    bool takeNotedWrite() { return writeNoted_.exchange(false); }

private:
    enum class State { Awake, Waiting, Woken };

    // All accesses are sequentially consistent: of a thread that leaves its news and looks at the state, and the poll
    // thread that sets the state and looks for news, one sees what the other did.
    std::atomic<State> state_{State::Awake};
    std::atomic<bool> writeNoted_{false};
    /// Opened by the poll thread before any other can find it waiting.
    WakeSignal signal_;
};

} // namespace ql::impl
