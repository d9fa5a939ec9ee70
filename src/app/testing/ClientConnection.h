// SPDX-License-Identifier: MIT
#pragma once

#include "app/testing/ClientSocket.h"

#include <chrono>
#include <string>
#include <string_view>

namespace vireo::impl {

/// Where a server is.
struct ServerPlace {
    /// @param url "http://host", with a port or not.
    /// @throws std::invalid_argument for anything else.
    static ServerPlace Of(const std::string& url);
    std::string url() const { return "http://" + authority(); }
    /// What Host says.
    std::string authority() const { return port == "80" ? hostText : hostText + ":" + port; }

    /// As in the URL: an IPv6 address has its brackets.
    std::string hostText;
    std::string port;
};

/// A connection of a TestClient, with what has come and was not used yet. What does not come in time, and a connection
/// that breaks, is thrown as std::runtime_error. For one thread.
class ClientConnection {
public:
    ClientConnection(const ServerPlace& place, std::chrono::milliseconds patience);

    /// For how long each of the following waits.
    void setPatience(std::chrono::milliseconds patience) { patience_ = patience; }

    /// Sends `bytes`, of which is left what was not sent.
    /// @param what is sent, for the error's text.
    /// @return false where the peer has something to say before it takes more, or is gone: receiveMore() tells.
    bool send(std::string_view& bytes, const std::string& what);
    /// Waits for more behind what received() has.
    /// @param what is waited for, for the error's text.
    /// @return false at the connection's end.
    bool receiveMore(const std::string& what);
    std::string& received() { return received_; }

    /// Whether another request may be sent.
    bool isIdle() const { return received_.empty() && socket_.isQuiet(); }
    void close() { socket_.close(); }
    void reset() { socket_.reset(); }

private:
    Deadline deadline() const { return std::chrono::steady_clock::now() + patience_; }

    std::chrono::milliseconds patience_;
    ClientSocket socket_;
    std::string received_;
};

} // namespace vireo::impl
