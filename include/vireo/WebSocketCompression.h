// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstddef>
#include <memory>

namespace ql::impl {
struct CompressionSettings;
}

namespace ql::http {

/// How messages are compressed where client and server agree on it (permessage-deflate, RFC 7692): for
/// WebSocketOptions::setCompression(). Fresh ones have the defaults.
///
/// What it takes for each connection, in bytes: 2^(window bits + 2) + 128 KiB for what is sent, which are 256 KiB with
/// the defaults, and 2^(window bits) + 8 KiB for what is received. Without context takeover it is taken
/// for one message only. It pays for text that repeats itself; what is compressed already should be sent with
/// WebSocketOptions that don't compress.
///
/// A value. One that was moved from may only be assigned to or destroyed.
class VIREO_API WebSocketCompression {
public:
    /// Bounds of setLevel().
    ///@{
    static constexpr int MinLevel = 1;
    static constexpr int MaxLevel = 9;
    ///@}
    /// Bounds of the window bits. zlib has no smaller window than that of 9 bits for what it compresses.
    ///@{
    static constexpr int MinWindowBits = 9;
    static constexpr int MaxWindowBits = 15;
    ///@}

    /// All with their defaults.
    WebSocketCompression();
    /// Copies, or takes over.
    ///@{
    WebSocketCompression(const WebSocketCompression& other);
    WebSocketCompression(WebSocketCompression&& other) noexcept;
    WebSocketCompression& operator=(const WebSocketCompression& other);
    WebSocketCompression& operator=(WebSocketCompression&& other) noexcept;
    ///@}
    ~WebSocketCompression();

    // Each throws std::invalid_argument for what is out of its bounds.

    /// zlib's level: 1, the default, is the fastest, 9 the smallest.
    void setLevel(int level);
    /// What was set, or the default.
    int getLevel() const;

    /// Shorter messages are sent as they are, as are those that would not get smaller; 256 bytes by default.
    void setMinBytes(std::size_t bytes);
    /// What was set, or the default.
    std::size_t getMinBytes() const;

    /// The largest window for what the server sends, as a power of two in bytes; 15 by default. A client may ask for a
    /// smaller one.
    void setServerMaxWindowBits(int bits);
    /// What was set, or the default.
    int getServerMaxWindowBits() const;

    /// The largest window for what the client sends; 15 by default. Less is asked of clients that know how to: others
    /// are served without compression then.
    void setClientMaxWindowBits(int bits);
    /// What was set, or the default.
    int getClientMaxWindowBits() const;

    /// Whether each message of the server is compressed by itself; false by default. It compresses less, and leaves no
    /// memory with an idle connection. A client may ask for it.
    void setServerNoContextTakeover(bool on);
    /// What was set, or the default.
    bool hasServerNoContextTakeover() const;

    /// The same for what the client sends; it is told so.
    void setClientNoContextTakeover(bool on);
    /// What was set, or the default.
    bool hasClientNoContextTakeover() const;

private:
    friend struct impl::CompressionSettings;

    std::unique_ptr<impl::CompressionSettings> settings_;
};

} // namespace ql::http
