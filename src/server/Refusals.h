// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

namespace ql::impl {

/// Tells clients for whom there is no room that there is none, without waiting for any of them. Such a connection stays
/// a moment, in which what its client has sent is thrown away: closed with something unread it would be reset, and the
/// client might not see the answer. For one thread.
class Refusals {
public:
    Refusals() = default;
    ~Refusals();
    Refusals(const Refusals&) = delete;
    Refusals& operator=(const Refusals&) = delete;

    bool isEmpty() const { return lingering_.empty(); }

    /// Answers 503 on a socket that was accepted, which is closed by and by.
    /// @throws std::bad_alloc; the socket is the caller's then.
    void add(std::uint64_t socket, std::int64_t nowMs);

    /// Closes those whose clients have gone, or had their time. To be called every now and then.
    void look(std::int64_t nowMs);

private:
    struct Lingering {
        std::uint64_t socket;
        std::int64_t untilMs;
    };

    void closeOldest();

    /// In the order of their times.
    std::deque<Lingering> lingering_;
};

} // namespace ql::impl
