// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketCompression.h"
#include "vireo/WebSocketPool.h"
#include "vireo/export.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ql::impl {
struct SessionSettings;
}

namespace ql::http {

/// How the sessions of WebSockets are served, for ServerOptions::setWebSockets(). Fresh ones have the defaults.
///
/// A value. One that was moved from may only be assigned to or destroyed. What is out of bounds throws
/// std::invalid_argument.
class VIREO_API WebSocketOptions {
public:
    /// Bounds of the times, in milliseconds.
    ///@{
    static constexpr std::uint32_t MinTimeMs = 10;
    static constexpr std::uint32_t MaxTimeMs = 86400000;
    ///@}
    /// The most for setThreads(): they make a pool.
    static constexpr std::uint32_t MaxThreads = WebSocketPool::MaxThreads;

    /// What becomes of a message for which there is no room: its peer takes less than it is sent.
    enum class QueuePolicy {
        Close,      ///< the connection is closed with 1013, and what it has not taken is dropped
        DropOldest, ///< the oldest messages that are not begun with are dropped until there is room
        Wait,       ///< the sender waits for room; on a thread of the pool, which must not, see WebSocketSend::Full
    };

    /// All with their defaults.
    WebSocketOptions();
    /// Copies, or takes over.
    ///@{
    WebSocketOptions(const WebSocketOptions& other);
    WebSocketOptions(WebSocketOptions&& other) noexcept;
    WebSocketOptions& operator=(const WebSocketOptions& other);
    WebSocketOptions& operator=(WebSocketOptions&& other) noexcept;
    ///@}
    ~WebSocketOptions();

    /// The longest message that a client may send, in bytes as the session gets it; 1048576 by default, 1 at least. A
    /// longer one closes the connection with 1009, before it is received as far as that can be told; so does a
    /// compressed one that takes more than twice the limit and 65536 bytes as it is sent.
    void setMaxMessageBytes(std::uint64_t bytes);
    /// What was set, or the default.
    std::uint64_t getMaxMessageBytes() const;

    /// How many bytes may wait for one peer to take them; 4194304 by default, 1 at least. It must have room for the
    /// longest message that is sent at once. A peer that never reads costs no more than that.
    void setMaxQueuedBytes(std::uint64_t bytes);
    /// What was set, or the default.
    std::uint64_t getMaxQueuedBytes() const;

    /// What becomes of a message beyond it; QueuePolicy::Close by default.
    void setQueuePolicy(QueuePolicy policy);
    /// What was set, or the default.
    QueuePolicy getQueuePolicy() const;

    // ---- Who may ask ----

    /// Lets pages of this origin have WebSockets, too, besides those that WebSocketAcceptor::isOriginAllowed() allows:
    /// "https://example.org", with ":" and a port where it is not the scheme's own.
    void addAllowedOrigin(const std::string& origin);
    /// In the order in which they were added.
    const std::vector<std::string>& getAllowedOrigins() const;

    // ---- Times, in milliseconds, from MinTimeMs to MaxTimeMs ----

    /// After how long without a byte from the peer it is sent a ping, up to a second later; 45000 by default, 0 for
    /// never. It keeps what is in between from forgetting the connection: many proxies do after a minute.
    void setPingIntervalMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getPingIntervalMs() const;

    /// How long a peer may take to answer such a ping, be it by anything; 20000 by default, 0 for any time. Then the
    /// connection is lost: WebSocketSession::onClose() gets 1006.
    void setPongTimeoutMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getPongTimeoutMs() const;

    /// After how long without a message either way the connection is closed with 1000; 0, the default, for never. Pings
    /// and pongs are none.
    void setIdleTimeoutMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getIdleTimeoutMs() const;

    /// How long a peer may take to close after it was told to; 5000 by default. When the server stops, all of them have
    /// this time together. 0 is out of bounds.
    void setCloseTimeoutMs(std::uint32_t ms);
    /// What was set, or the default.
    std::uint32_t getCloseTimeoutMs() const;

    // ---- Messages ----

    /// Offers to compress messages; without it, the default, no message is.
    void setCompression(const WebSocketCompression& compression);
    /// What was set, or none.
    const std::optional<WebSocketCompression>& getCompression() const;

    /// Whether sessions get what clients send in pieces as they come, by WebSocketSession::onPiece(), instead of whole
    /// messages; false by default. The limit of setMaxMessageBytes() holds for a message all the same.
    void setPieces(bool on);
    /// What was set, or the default.
    bool hasPieces() const;

    // ---- Threads ----

    /// How many threads serve the sessions of a server that runs; 2 by default, from 1 to MaxThreads. They call the
    /// sessions, so a session that takes its time wants more of them.
    void setThreads(std::uint32_t count);
    /// What was set, or the default.
    std::uint32_t getThreads() const;

    /// A pool that serves them instead, which others may share. Null, the default: the server has one of its own as
    /// long as it runs.
    void setPool(std::shared_ptr<WebSocketPool> pool);
    /// What was set, or null.
    const std::shared_ptr<WebSocketPool>& getPool() const;

private:
    friend struct impl::SessionSettings;

    std::unique_ptr<impl::SessionSettings> settings_;
};

} // namespace ql::http
