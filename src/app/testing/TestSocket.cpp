// SPDX-License-Identifier: MIT
#include "app/testing/SocketClient.h"
#include "vireo/app/TestClient.h"

#include <utility>

namespace vireo {

TestSocket::TestSocket(std::unique_ptr<impl::SocketClient>&& socket) : socket_(std::move(socket)) {}

TestSocket::TestSocket(TestSocket&& other) noexcept = default;

TestSocket& TestSocket::operator=(TestSocket&& other) noexcept = default;

TestSocket::~TestSocket() = default;

int TestSocket::status() const {
    return socket_->answer().status;
}

TestResponse TestSocket::answer() const {
    return TestResponse(impl::ResponseText(socket_->answer()));
}

const std::string& TestSocket::subprotocol() const {
    return socket_->subprotocol();
}

void TestSocket::sendText(std::string_view text) {
    socket_->send(impl::FrameText::Kind::Text, text);
}

void TestSocket::sendBinary(std::string_view bytes) {
    socket_->send(impl::FrameText::Kind::Binary, bytes);
}

std::optional<std::string> TestSocket::receive() {
    return socket_->receive();
}

void TestSocket::close(std::uint16_t code) {
    socket_->close(code);
}

std::uint16_t TestSocket::closeCode() const {
    return socket_->closeCode();
}

} // namespace vireo
