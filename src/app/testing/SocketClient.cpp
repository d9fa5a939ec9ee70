// SPDX-License-Identifier: MIT
#include "app/testing/SocketClient.h"

#include "app/kernel/Throw.h"

#include <utility>

namespace vireo::impl {

SocketClient::SocketClient(std::shared_ptr<ClientConnection> connection) : connection_(std::move(connection)) {
    while (!reader_.read(connection_->received())) {
        if (!connection_->receiveMore("the answer to the WebSocket's opening")) {
            reader_.finish();
        }
    }
    isOpen_ = answer().status == 101;
    subprotocol_ = answer().header("Sec-WebSocket-Protocol");
}

void SocketClient::send(FrameText::Kind kind, std::string_view payload) {
    if (!isOpen_ || hasSentClose_) {
        throwRuntimeError("the WebSocket is not open");
    }
    sendFrame(kind, payload);
}

std::optional<std::string> SocketClient::receive() {
    while (isOpen_) {
        std::optional<FrameText> frame = receiveFrame();
        if (!frame) {
            isOpen_ = false;
            closeCode_ = Abnormal;
            break;
        }
        if (std::optional<std::string> message = take(std::move(*frame))) {
            return message;
        }
    }
    return std::nullopt;
}

void SocketClient::close(std::uint16_t code) {
    if (isOpen_) {
        sendClose(std::string{static_cast<char>(code >> 8U), static_cast<char>(code & 0xffU)});
    }
    while (receive()) {
    }
}

std::optional<FrameText> SocketClient::receiveFrame() {
    while (true) {
        if (std::optional<FrameText> frame = FrameText::Take(connection_->received())) {
            return frame;
        }
        if (!connection_->receiveMore("a message")) {
            return std::nullopt;
        }
    }
}

std::optional<std::string> SocketClient::take(FrameText&& frame) {
    switch (frame.kind) {
    case FrameText::Kind::Text:
    case FrameText::Kind::Binary:
    case FrameText::Kind::Continuation:
        message_ += frame.payload;
        return frame.isFinal ? std::optional(std::exchange(message_, {})) : std::nullopt;
    case FrameText::Kind::Close:
        takeClose(frame);
        return std::nullopt;
    case FrameText::Kind::Ping:
        if (!hasSentClose_) {
            sendFrame(FrameText::Kind::Pong, frame.payload);
        }
        return std::nullopt;
    case FrameText::Kind::Pong:
        return std::nullopt;
    }
    throwRuntimeError("the server sent a frame of an unknown kind");
}

void SocketClient::takeClose(const FrameText& frame) {
    if (frame.payload.size() >= 2) {
        const auto high = static_cast<unsigned char>(frame.payload[0]);
        const auto low = static_cast<unsigned char>(frame.payload[1]);
        closeCode_ = static_cast<std::uint16_t>(high * 256U + low);
    }
    sendClose(frame.payload.substr(0, 2));
    isOpen_ = false;
}

void SocketClient::sendClose(std::string_view payload) {
    if (!std::exchange(hasSentClose_, true)) {
        sendFrame(FrameText::Kind::Close, payload);
    }
}

void SocketClient::sendFrame(FrameText::Kind kind, std::string_view payload) {
    const std::string frame = FrameText{kind, true, std::string(payload)}.toBytes();
    std::string_view rest = frame;
    while (!connection_->send(rest, "a message")) {
        if (!connection_->receiveMore("room for a message")) {
            throwRuntimeError("the WebSocket's connection broke");
        }
    }
}

} // namespace vireo::impl
