// SPDX-License-Identifier: MIT
#pragma once

#include "app/sockets/RoomFrame.h"
#include "vireo/app/RoomBus.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace vireo::impl {

/// One end of a bus: numbers what this process publishes, and of what comes leaves out its own, and what comes twice or
/// late. Any thread.
class RoomLink {
public:
    /// Gets what other processes have sent. Called by the bus, on a thread of its own.
    using Deliver = std::function<void(const RoomFrame& frame)>;

    /// Throws std::invalid_argument without a bus, and what its start() throws.
    RoomLink(std::unique_ptr<RoomBus> bus, Deliver deliver);
    /// No delivery is under way afterwards.
    ~RoomLink();
    RoomLink(const RoomLink&) = delete;
    RoomLink& operator=(const RoomLink&) = delete;

    /// A message as it will be published, so that publish() needs no memory.
    /// Throws std::bad_alloc.
    std::string frameOf(std::string_view room, bool isBinary, std::string_view message) const;
    void publish(std::string frame) noexcept QL_EXCLUDES(sending_);

    RoomTraffic traffic() const;

    /// So many other processes are known by what they sent last. Those that have been silent for longest are forgotten:
    /// there are not so many at a time, but each start of one is another.
    static constexpr std::size_t MostOrigins = 1024;

private:
    struct Origin {
        std::uint64_t number = 0; ///< of its last frame
        std::uint64_t heardAt = 0;
    };

    void receive(std::string_view bytes) noexcept QL_EXCLUDES(receiving_);
    void tellMalformed() noexcept;
    /// Whether this one is newer than those of its origin before.
    bool isNews(const RoomFrame& frame) QL_REQUIRES(receiving_);
    void forgetOldest() QL_REQUIRES(receiving_);

    const std::unique_ptr<RoomBus> bus_;
    const Deliver deliver_;
    RoomOrigin self_{};

    /// Held over RoomBus::publish(), so that the numbers are in the order of the frames.
    qlMutex sending_;
    std::uint64_t lastNumber_ QL_GUARDED_BY(sending_) = 0;

    qlMutex receiving_;
    std::map<RoomOrigin, Origin> origins_ QL_GUARDED_BY(receiving_);
    std::uint64_t heard_ QL_GUARDED_BY(receiving_) = 0;

    std::atomic<std::uint64_t> published_{0};
    std::atomic<std::uint64_t> refused_{0};
    std::atomic<std::uint64_t> received_{0};
    std::atomic<std::uint64_t> missed_{0};
    std::atomic<std::uint64_t> malformed_{0};
};

} // namespace vireo::impl
