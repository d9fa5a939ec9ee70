// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace ql::impl {

/// What comes next on a connection, and from whom.
enum class Stage : std::uint8_t {
    FirstHead,   ///< the head of the first request, from the client
    NextHead,    ///< that of another one, when the client has one
    Held,        ///< a decision on the body, or room for more of it, from the application
    Body,        ///< more of the body, from the client
    Answer,      ///< the begin of the answer, from the application
    Application, ///< more of the answer, from the application
    Sending,     ///< the client takes the answer, which nobody was asked for but once
    Streaming,   ///< the client takes the answer, for more of which the engine has come
};

/// How far a connection has come.
struct Progress {
    /// Another number at each step.
    std::uint64_t step = 0;
    Stage stage = Stage::FirstHead;
    /// Of all bodies that came over the connection.
    std::uint64_t bodyBytes = 0;
    /// What the client's system has taken of all that was sent; nothing where that is not known.
    std::optional<std::uint64_t> acknowledgedBytes = std::nullopt;
};

/// Where a daemon thread notes how far a connection has come, for a thread that looks from time to time. It needs no
/// clock: who looks has one.
class DeadlineMarks {
public:
    // The daemon thread's.

    void enter(Stage stage) { step_.store(nextStep() | static_cast<std::uint64_t>(stage), std::memory_order_relaxed); }
    void countBody(std::size_t size) {
        bodyBytes_.store(bodyBytes_.load(std::memory_order_relaxed) + size, std::memory_order_relaxed);
    }

    // Any thread.

    /// All but the acknowledged bytes.
    Progress progress() const {
        const std::uint64_t step = step_.load(std::memory_order_relaxed);
        return {step, static_cast<Stage>(step % StepSize), bodyBytes_.load(std::memory_order_relaxed)};
    }

private:
    static constexpr std::uint64_t StepSize = 8;

    std::uint64_t nextStep() const { return (step_.load(std::memory_order_relaxed) / StepSize + 1) * StepSize; }

    /// Counts in steps of StepSize, and has the stage in what is left: one number, so that both belong together.
    std::atomic<std::uint64_t> step_{static_cast<std::uint64_t>(Stage::FirstHead)};
    std::atomic<std::uint64_t> bodyBytes_{0};
};

} // namespace ql::impl
