// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace vireo::impl {

/// Who may answer an exchange, and when nobody may any more:
///
///     Waiting ─begin()─▶ Open ─defer()─▶ Deferred
///                         │                 │
///                         └───── claim() ───┴───▶ Claimed
///
///     end(): Waiting, Open, Deferred ─▶ Over; Claimed stays, and is over all the same
///
/// Each arrow has one winner. Who wins it out of Waiting or Deferred owns what was left there with the exchange. Any
/// thread.
template <template <class> class Atomic = std::atomic>
class AnswerState {
public:
    enum class Stage : std::uint8_t {
        Waiting,  ///< for its body, or for a thread
        Open,     ///< its handler runs, or has left it to nobody
        Deferred, ///< it is left to a Later
        Claimed,  ///< somebody answers, or has
        Over,     ///< it ended unanswered
    };

    /// Its handler runs now. @return false when it is over.
    bool begin() { return go(Stage::Waiting, Stage::Open); }
    /// It is left to a Later. @return false when it was claimed, or is over.
    bool defer() { return go(Stage::Open, Stage::Deferred); }
    /// The caller answers, alone. @param from Open or Deferred. @return false when it is not there.
    bool claim(Stage from) { return go(from, Stage::Claimed); }

    /// The exchange has ended, as the engine says, once.
    /// @return the stage that it has ended: what it was in, unless that was Claimed.
    Stage end() {
        isOver_.store(true);
        Stage stage = stage_.load();
        while (stage != Stage::Claimed && !stage_.compare_exchange_strong(stage, Stage::Over)) {
        }
        return stage;
    }

    Stage stage() const { return stage_.load(); }
    /// Whether end() was called.
    bool isOver() const { return isOver_.load(); }

private:
    bool go(Stage from, Stage to) { return stage_.compare_exchange_strong(from, to); }

    Atomic<Stage> stage_{Stage::Waiting};
    Atomic<bool> isOver_{false};
};

} // namespace vireo::impl
