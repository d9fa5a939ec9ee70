// SPDX-License-Identifier: MIT
#include "app/testing/ClientState.h"

#include "app/kernel/Throw.h"
#include "frame/HttpSyntax.h"
#include "vireo/Vireo.h"

#include <utility>

namespace vireo::impl {

ClientState::ClientState(ServerPlace place, App* app) : place_(std::move(place)), app_(app) {
    // On Windows the sockets of the process come up with the library.
    ql::initializeVireo();
}

ClientState::~ClientState() {
    closeConnections();
    ql::terminateVireo();
}

ResponseText ClientState::exchange(const RequestPlan& plan) {
    const RequestText text = textOf(plan);
    const std::string bytes = text.head + text.body;
    const std::string what = plan.method + " " + plan.target;
    ClientConnection connection = takeConnection();
    ResponseReader reader(plan.method == "HEAD");
    std::string_view rest = bytes;
    // A server may answer before it has all of the body.
    while (!reader.isWhole()) {
        connection.send(rest, what);
        const bool isOpen = connection.receiveMore("the answer to " + what);
        reader.read(connection.received());
        if (!isOpen) {
            reader.finish();
        }
    }
    if (rest.empty() && reader.keepsConnection()) {
        idle_ = std::move(connection);
    }
    cookies_.take(reader.text());
    return std::move(reader.text());
}

std::shared_ptr<ClientConnection> ClientState::open(const RequestPlan& plan) {
    const RequestText text = textOf(plan);
    auto connection = std::make_shared<ClientConnection>(place_, patience_);
    std::string_view rest = text.head;
    connection->send(rest, plan.method + " " + plan.target);
    opened_.push_back(connection);
    return connection;
}

void ClientState::begin(const RequestPlan& plan, std::size_t bodyBytes) {
    const RequestText text = textOf(plan);
    const std::string bytes = text.head + text.body.substr(0, bodyBytes);
    std::string_view rest = bytes;
    begun_.emplace_back(place_, patience_);
    if (!begun_.back().send(rest, plan.method + " " + plan.target)) {
        throwRuntimeError("the server did not take all of " + plan.method + " " + plan.target);
    }
}

void ClientState::abort() {
    for (ClientConnection& connection : begun_) {
        connection.reset();
    }
    begun_.clear();
}

void ClientState::closeConnections() {
    idle_.reset();
    begun_.clear();
    for (const std::weak_ptr<ClientConnection>& opened : std::exchange(opened_, {})) {
        if (const std::shared_ptr<ClientConnection> connection = opened.lock()) {
            connection->close();
        }
    }
}

void ClientState::setPatience(std::chrono::milliseconds patience) {
    patience_ = patience;
    if (idle_) {
        idle_->setPatience(patience);
    }
    for (const std::weak_ptr<ClientConnection>& opened : opened_) {
        if (const std::shared_ptr<ClientConnection> connection = opened.lock()) {
            connection->setPatience(patience);
        }
    }
}

void ClientState::setHeader(const std::string& name, const std::string& value) {
    std::erase_if(headers_, [&name](const auto& header) { return ql::impl::isSameWord(header.first, name); });
    if (!value.empty()) {
        headers_.emplace_back(name, value);
    }
}

RequestText ClientState::textOf(const RequestPlan& plan) const {
    return RequestText::Of(plan, place_.authority(), cookies_.header(), headers_);
}

ClientConnection ClientState::takeConnection() {
    // A new one where the old is not there or has been closed by the server, so that no request is lost on its way.
    if (idle_ && idle_->isIdle()) {
        ClientConnection connection = std::move(*idle_);
        idle_.reset();
        return connection;
    }
    idle_.reset();
    return ClientConnection(place_, patience_);
}

} // namespace vireo::impl
