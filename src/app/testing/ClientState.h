// SPDX-License-Identifier: MIT
#pragma once

#include "app/testing/ClientConnection.h"
#include "app/testing/CookieJar.h"
#include "app/testing/RequestPlan.h"
#include "app/testing/ResponseText.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vireo {
class App;
}

namespace vireo::impl {

/// What a TestClient is made of: where its server is, its cookies and its connections.
class ClientState {
public:
    /// @param app the one that is to be stopped in the end, or null.
    ClientState(ServerPlace place, App* app);
    ~ClientState();
    ClientState(const ClientState&) = delete;
    ClientState& operator=(const ClientState&) = delete;

    ResponseText exchange(const RequestPlan& plan);
    /// Sends a request on a connection of its own, on which the answer is to come.
    std::shared_ptr<ClientConnection> open(const RequestPlan& plan);
    void begin(const RequestPlan& plan, std::size_t bodyBytes);
    void abort();
    /// Those of open() as well.
    void closeConnections();

    void setPatience(std::chrono::milliseconds patience);
    void setHeader(const std::string& name, const std::string& value);
    CookieJar& cookies() { return cookies_; }
    std::string url() const { return place_.url(); }
    App* app() const { return app_; }

private:
    RequestText textOf(const RequestPlan& plan) const;
    ClientConnection takeConnection();

    const ServerPlace place_;
    App* const app_;
    std::chrono::milliseconds patience_{10000};
    /// Of all requests.
    RequestPlan::Headers headers_;
    CookieJar cookies_;
    /// The one that is between two requests.
    std::optional<ClientConnection> idle_;
    std::vector<ClientConnection> begun_;
    std::vector<std::weak_ptr<ClientConnection>> opened_;
};

} // namespace vireo::impl
