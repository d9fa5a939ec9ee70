// SPDX-License-Identifier: MIT
#include "app/testing/ClientConnection.h"

#include "app/kernel/Throw.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <array>

namespace vireo::impl {

namespace {

constexpr std::string_view Scheme = "http://";

bool isPort(std::string_view text) {
    return !text.empty() && text.size() <= 5 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string withoutBrackets(const std::string& host) {
    return host.front() == '[' ? host.substr(1, host.size() - 2) : host;
}

} // namespace

ServerPlace ServerPlace::Of(const std::string& url) {
    std::string_view rest = url;
    if (rest.starts_with(Scheme)) {
        rest.remove_prefix(Scheme.size());
        if (rest.ends_with('/')) {
            rest.remove_suffix(1);
        }
        const std::size_t bracket = rest.find(']');
        const std::size_t colon = rest.find(':', bracket == std::string_view::npos ? 0 : bracket);
        const std::string_view host = rest.substr(0, colon);
        const std::string_view port = colon == std::string_view::npos ? "80" : rest.substr(colon + 1);
        const bool isBracketed = host.starts_with('[') && host.ends_with(']') && host.size() > 2;
        if (!host.empty() && (isBracketed || host.find_first_of("[]") == std::string_view::npos) &&
            host.find_first_of("/?#@ ") == std::string_view::npos && isPort(port)) {
            return {std::string(host), std::string(port)};
        }
    }
    ql::impl::throwInvalidArgument("a test client takes a URL such as http://127.0.0.1:8181, not " + url);
}

ClientConnection::ClientConnection(const ServerPlace& place, std::chrono::milliseconds patience)
    : patience_(patience), socket_(ClientSocket::Connect(withoutBrackets(place.hostText), place.port, deadline())) {
    if (!socket_.isOpen()) {
        throwRuntimeError("nobody answers at " + place.url());
    }
}

bool ClientConnection::send(std::string_view& bytes, const std::string& what) {
    const Deadline end = deadline();
    while (!bytes.empty()) {
        const ClientSocket::Result result = socket_.send(bytes, end);
        if (result.outcome == ClientSocket::Outcome::TimedOut) {
            throwRuntimeError("the server did not take " + what + " in time");
        }
        if (result.outcome != ClientSocket::Outcome::Done) {
            return false;
        }
        bytes.remove_prefix(result.bytes);
    }
    return true;
}

bool ClientConnection::receiveMore(const std::string& what) {
    std::array<char, 16384> room{};
    const ClientSocket::Result result = socket_.receive(room, deadline());
    if (result.outcome == ClientSocket::Outcome::TimedOut) {
        throwRuntimeError(what + " did not come in time");
    }
    received_.append(room.data(), result.bytes);
    return result.outcome == ClientSocket::Outcome::Done;
}

} // namespace vireo::impl
