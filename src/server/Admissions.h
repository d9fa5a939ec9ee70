// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <unordered_map>
#include <vector>

namespace ql::impl {

/// Who is in a server that accepts by itself: each connection from its acceptance until the engine closes it, as a
/// WebSocket, too. Known by its descriptor, for the engine says nothing of those that it takes and cannot begin with:
/// when their number comes again, they have gone. Any thread.
class Admissions {
public:
    struct Limits {
        std::size_t connections = std::numeric_limits<std::size_t>::max();
        std::size_t perAddress = std::numeric_limits<std::size_t>::max();
    };

    /// Who asks to be let in.
    struct Newcomer {
        std::uint64_t socket = 0;
        /// What the limit for each address counts; none for who has no address.
        std::optional<std::uint64_t> address;
        /// The number of the listener.
        std::size_t listener = 0;
    };

    /// Some of the engines, by their numbers.
    struct Engines {
        std::size_t first = 0;
        std::size_t count = 0;
    };

    struct Counts {
        std::size_t waiting = 0;  ///< given to an engine that has not begun with them
        std::size_t upgraded = 0; ///< WebSockets
        std::uint64_t upgradesEnded = 0;
    };

    /// @param engines how many there are to share the connections.
    Admissions(const Limits& limits, std::size_t engines) : limits_(limits), loads_(engines, 0) {}

    /// Lets a connection in. @param engines that may have it, at least one.
    /// @return the number of the engine among them that has the fewest; none when there is no room.
    /// @throws std::bad_alloc
    std::optional<std::size_t> admit(const Newcomer& newcomer, const Engines& engines) QL_EXCLUDES(mutex_);

    /// The engine has begun with it.
    /// @return the number of the listener that it has come by; none for who was not let in.
    std::optional<std::size_t> begin(std::uint64_t socket) noexcept QL_EXCLUDES(mutex_);
    /// It is a WebSocket now.
    void upgrade(std::uint64_t socket) noexcept QL_EXCLUDES(mutex_);
    /// Before it is closed, or when the engine did not take it.
    void leave(std::uint64_t socket) noexcept QL_EXCLUDES(mutex_);

    Counts counts() QL_EXCLUDES(mutex_);

    /// Waits until the engines have begun with everybody. Not for longer than that: with some they never do.
    void waitForEngines(std::int64_t timeMs) QL_EXCLUDES(mutex_);

private:
    enum class Stage { Waiting, Http, Upgraded };
    static constexpr std::size_t StageCount = 3;
    struct Entry {
        std::optional<std::uint64_t> address;
        std::size_t listener;
        std::size_t engine;
        Stage stage;
    };

    bool hasRoom(std::optional<std::uint64_t> address) const QL_REQUIRES(mutex_);
    std::size_t& countOf(Stage stage) QL_REQUIRES(mutex_) { return counts_[static_cast<std::size_t>(stage)]; }
    std::optional<std::size_t> setStage(std::uint64_t socket, Stage stage) noexcept QL_EXCLUDES(mutex_);
    void remove(std::uint64_t socket) QL_REQUIRES(mutex_);
    void leaveStage(Stage stage) QL_REQUIRES(mutex_);
    void forgetAddress(std::optional<std::uint64_t> address) QL_REQUIRES(mutex_);

    const Limits limits_;
    qlMutex mutex_;
    qlWaitCondition noneWaits_;
    std::vector<std::size_t> loads_ QL_GUARDED_BY(mutex_);
    std::unordered_map<std::uint64_t, Entry> entries_ QL_GUARDED_BY(mutex_);
    std::unordered_map<std::uint64_t, std::size_t> addresses_ QL_GUARDED_BY(mutex_);
    std::array<std::size_t, StageCount> counts_ QL_GUARDED_BY(mutex_){};
    std::uint64_t upgradesEnded_ QL_GUARDED_BY(mutex_) = 0;
};

} // namespace ql::impl
