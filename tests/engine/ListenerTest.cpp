#include "engine/Listener.h"

#include "engine/ListenEndpointData.h"
#include "engine/StartFailure.h"
#include "support/OccupiedPort.h"
#include "support/OpenListener.h"
#include "support/RawSocket.h"
#include "support/WaitUntil.h"
#include "vireo/support/IpAddress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <string_view>

namespace {

using ql::http::ListenEndpoint;
using ql::impl::AcceptedSocket;
using ql::impl::ListenEndpointData;
using ql::impl::Listener;
using ql::impl::StartFailure;
using vireotest::letOthersRun;
using vireotest::openListener;
using vireotest::RawSocket;
using vireotest::soon;
using vireotest::waitUntil;
using Outcome = Listener::Outcome;
using StartError = ql::http::HttpServer::StartError;

std::string addressOf(const AcceptedSocket& accepted) {
    ql::IpAddress address;
    address.fromIP(accepted.address.get());
    return address.toString();
}

StartFailure failureOf(const ListenEndpoint& endpoint) {
    StartFailure failure;
    EXPECT_EQ(Listener::Open(ListenEndpointData::of(endpoint), 16, failure), nullptr);
    return failure;
}

class ListenerTest : public testing::Test {
protected:
    RawSocket connect() const { return RawSocket::Connect("127.0.0.1", port_, 0); }

    AcceptedSocket accept() {
        AcceptedSocket accepted;
        EXPECT_TRUE(waitUntil([&] { return listener_->accept(accepted) == Outcome::Accepted; }));
        return accepted;
    }

    std::unique_ptr<Listener> listener_ = openListener();
    const std::uint16_t port_ = listener_->port();
};

TEST_F(ListenerTest, AcceptsWhoConnects) {
    AcceptedSocket accepted;
    EXPECT_EQ(listener_->accept(accepted), Outcome::NoneWaiting);
    RawSocket client = connect();
    ASSERT_TRUE(client.isOpen());
    accepted = accept();
    EXPECT_EQ(addressOf(accepted), "127.0.0.1");
    EXPECT_EQ(listener_->accept(accepted), Outcome::NoneWaiting);

    EXPECT_EQ(ql::impl::unreadBytes(accepted.socket), 0U);
    constexpr std::string_view Bytes = "four";
    EXPECT_EQ(client.send(Bytes.data(), Bytes.size(), soon()).bytes, Bytes.size());
    EXPECT_TRUE(waitUntil([&] { return ql::impl::unreadBytes(accepted.socket) == Bytes.size(); }));
    ql::impl::endSending(accepted.socket);
    char byte = 0;
    EXPECT_EQ(client.receive(&byte, 1, soon()).status, RawSocket::Status::End);
    ql::impl::closeSocket(accepted.socket);
}

TEST_F(ListenerTest, ListensOnThePortThatIsAskedForAgainAtOnce) {
    RawSocket client = connect();
    ql::impl::closeSocket(accept().socket);
    listener_.reset();
    listener_ = openListener(ListenEndpoint::Tcp("0.0.0.0", port_));
    EXPECT_EQ(listener_->port(), port_);
    EXPECT_TRUE(connect().isOpen());
}

TEST_F(ListenerTest, OnATakenPortIsNoneAndSaysWhy) {
    const StartFailure failure = failureOf(ListenEndpoint::Tcp("127.0.0.1", vireotest::occupiedPort()));
    EXPECT_EQ(failure.error, StartError::AddressInUse);
    EXPECT_NE(failure.text, "");
}

TEST_F(ListenerTest, RefusesNewOnesAndKeepsThoseThatHaveCome) {
    RawSocket first = connect();
    ASSERT_TRUE(first.isOpen());
    listener_->refuseNew();
    constexpr std::string_view Bytes = "still there";
    EXPECT_EQ(first.send(Bytes.data(), Bytes.size(), soon()).bytes, Bytes.size());
    const AcceptedSocket accepted = accept();
    EXPECT_TRUE(waitUntil([&] { return ql::impl::unreadBytes(accepted.socket) == Bytes.size(); }));
    ql::impl::closeSocket(accepted.socket);
}

TEST_F(ListenerTest, LetsNobodyBeginOnceItRefusesNewOnes) {
    listener_->refuseNew();
    std::future<bool> connecting = std::async(std::launch::async, [this] { return connect().isOpen(); });
    letOthersRun();
    AcceptedSocket accepted;
    EXPECT_EQ(listener_->accept(accepted), Outcome::NoneWaiting);
    EXPECT_EQ(connecting.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    listener_.reset();
    EXPECT_FALSE(connecting.get());
}

} // namespace
