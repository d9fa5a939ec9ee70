// SPDX-License-Identifier: MIT
#include "app/testing/ClientSocket.h"

#include "app/testing/ClientSocketCalls.h"

#include <optional>
#include <utility>

namespace vireo::impl {

namespace {

/// Once again where the system was early.
bool awaitUntil(std::uintptr_t socket, SocketReady what, Deadline deadline) {
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        if (awaitSocket(socket, what, left)) {
            return true;
        }
    }
}

/// @return none where the transfer is to be tried again later.
std::optional<ClientSocket::Result> resultOf(const TransferResult& transferred) {
    switch (transferred.outcome) {
    case TransferResult::Outcome::Done:
        return ClientSocket::Result{ClientSocket::Outcome::Done, transferred.bytes};
    case TransferResult::Outcome::Broken:
        return ClientSocket::Result{ClientSocket::Outcome::Ended, 0};
    case TransferResult::Outcome::WouldBlock:
        break;
    }
    return std::nullopt;
}

} // namespace

ClientSocket ClientSocket::Connect(const std::string& host, const std::string& port, Deadline deadline) {
    for (const NativeAddress& address : addressesOf(host, port)) {
        ClientSocket socket(beginConnection(address).value_or(Closed));
        if (socket.isOpen() && awaitUntil(socket.handle_, SocketReady::ToSend, deadline) &&
            isConnected(socket.handle_)) {
            return socket;
        }
    }
    return {};
}

ClientSocket::~ClientSocket() {
    close();
}

ClientSocket::ClientSocket(ClientSocket&& other) noexcept : handle_(std::exchange(other.handle_, Closed)) {}

ClientSocket& ClientSocket::operator=(ClientSocket&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
}

ClientSocket::Result ClientSocket::send(std::string_view bytes, Deadline deadline) {
    if (!isOpen()) {
        return {Outcome::Ended, 0};
    }
    while (true) {
        if (const std::optional<Result> result = resultOf(sendSome(handle_, bytes))) {
            return *result;
        }
        if (!isQuiet()) {
            return {Outcome::Spoken, 0};
        }
        if (!awaitUntil(handle_, SocketReady::ToEither, deadline)) {
            return {Outcome::TimedOut, 0};
        }
    }
}

ClientSocket::Result ClientSocket::receive(std::span<char> room, Deadline deadline) {
    if (!isOpen()) {
        return {Outcome::Ended, 0};
    }
    while (true) {
        if (const std::optional<Result> result = resultOf(receiveSome(handle_, room))) {
            return result->bytes == 0 ? Result{Outcome::Ended, 0} : *result;
        }
        if (!awaitUntil(handle_, SocketReady::ToReceive, deadline)) {
            return {Outcome::TimedOut, 0};
        }
    }
}

bool ClientSocket::isQuiet() const {
    return isOpen() && !awaitSocket(handle_, SocketReady::ToReceive, std::chrono::milliseconds(0));
}

void ClientSocket::close() {
    if (isOpen()) {
        closeSocket(std::exchange(handle_, Closed), false);
    }
}

void ClientSocket::reset() {
    if (isOpen()) {
        closeSocket(std::exchange(handle_, Closed), true);
    }
}

} // namespace vireo::impl
