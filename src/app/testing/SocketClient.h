// SPDX-License-Identifier: MIT
#pragma once

#include "app/testing/ClientConnection.h"
#include "app/testing/FrameText.h"
#include "app/testing/ResponseText.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// The client's end of a WebSocket. For one thread.
class SocketClient {
public:
    /// The code of a connection that ended without a close frame.
    static constexpr std::uint16_t Abnormal = 1006;

    /// @param connection has been sent the opening handshake.
    explicit SocketClient(std::shared_ptr<ClientConnection> connection);
    ~SocketClient() { connection_->close(); }
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    const ResponseText& answer() { return reader_.text(); }
    const std::string& subprotocol() const { return subprotocol_; }

    void send(FrameText::Kind kind, std::string_view payload);
    std::optional<std::string> receive();
    void close(std::uint16_t code);
    std::uint16_t closeCode() const { return closeCode_; }

private:
    /// Waits for a frame. @return none at the connection's end.
    std::optional<FrameText> receiveFrame();
    /// @return the message that the frame ends.
    std::optional<std::string> take(FrameText&& frame);
    void takeClose(const FrameText& frame);
    void sendClose(std::string_view payload);
    void sendFrame(FrameText::Kind kind, std::string_view payload);

    const std::shared_ptr<ClientConnection> connection_;
    ResponseReader reader_{false};
    std::string subprotocol_;
    bool isOpen_ = false;
    bool hasSentClose_ = false;
    std::uint16_t closeCode_ = 0;
    /// A message that has begun.
    std::string message_;
};

} // namespace vireo::impl
