#include "server/Acceptor.h"

#include "support/OpenListener.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using ql::impl::AcceptedSocket;
using ql::impl::Acceptor;
using ql::impl::Listener;
using vireotest::RawClient;
using vireotest::TestLog;
using vireotest::waitUntil;

class AcceptorTest : public testing::Test {
protected:
    AcceptorTest() {
        std::vector<std::unique_ptr<Listener>> listeners;
        for (std::uint16_t& port : ports_) {
            listeners.push_back(vireotest::openListener());
            port = listeners.back()->port();
        }
        acceptor_ = std::make_unique<Acceptor>(std::move(listeners), 64,
                                               [this](const AcceptedSocket& accepted) { return take(accepted); });
    }

    bool take(const AcceptedSocket& accepted) {
        if (throws_) {
            throw std::bad_alloc();
        }
        if (hasRoom_) {
            ql::impl::closeSocket(accepted.socket);
            ++takenAt_[accepted.listener];
            // Last: it is waited for.
            ++taken_;
        }
        return hasRoom_;
    }

    bool isTaken(unsigned int count) const {
        return waitUntil([&] { return taken_ == count; });
    }

    const TestLog log_;
    std::array<std::uint16_t, 2> ports_{};
    const std::uint16_t& port_ = ports_[0];
    std::atomic<bool> hasRoom_{true};
    std::atomic<bool> throws_{false};
    std::atomic<unsigned int> taken_{0};
    std::array<std::atomic<unsigned int>, 2> takenAt_{};
    std::unique_ptr<Acceptor> acceptor_;
};

TEST_F(AcceptorTest, TakesWhoConnectsAlsoBeforeItsStart) {
    const RawClient first(port_);
    acceptor_->start();
    EXPECT_TRUE(isTaken(1));
    const RawClient second(port_);
    const RawClient third(port_);
    EXPECT_TRUE(isTaken(3));
}

TEST_F(AcceptorTest, TakesWhoConnectsToAnyListenerAndSaysToWhich) {
    acceptor_->start();
    const RawClient first(ports_[0]);
    const RawClient second(ports_[1]);
    const RawClient third(ports_[1]);
    EXPECT_TRUE(isTaken(3));
    EXPECT_EQ(takenAt_[0], 1U);
    EXPECT_EQ(takenAt_[1], 2U);
}

TEST_F(AcceptorTest, RefusesWhoHasNoRoom) {
    hasRoom_ = false;
    acceptor_->start();
    RawClient client(port_);
    EXPECT_EQ(client.readResponse().status, 503);
    client.close();
    hasRoom_ = true;
    const RawClient next(port_);
    EXPECT_TRUE(isTaken(1));
}

TEST_F(AcceptorTest, OneThatCannotBeTakenIsClosedAndLogged) {
    throws_ = true;
    acceptor_->start();
    RawClient client(port_);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "a new connection"));
    throws_ = false;
    const RawClient next(port_);
    EXPECT_TRUE(isTaken(1));
}

TEST_F(AcceptorTest, CloseTakesWhoHasComeAndThenNobody) {
    const RawClient first(port_);
    const RawClient second(ports_[1]);
    acceptor_->close();
    EXPECT_FALSE(acceptor_->isClosed());
    acceptor_->start();
    EXPECT_TRUE(waitUntil([&] { return acceptor_->isClosed(); }));
    EXPECT_EQ(taken_, 2U);
    for (const std::uint16_t port : ports_) {
        EXPECT_THROW(RawClient{port}, std::runtime_error);
    }
}

TEST_F(AcceptorTest, CloseEndsAWait) {
    acceptor_->start();
    const RawClient client(port_);
    ASSERT_TRUE(isTaken(1));
    acceptor_->close();
    EXPECT_TRUE(waitUntil([&] { return acceptor_->isClosed(); }));
}

TEST_F(AcceptorTest, RefusedClientsHaveTheirTimeAfterTheClose) {
    hasRoom_ = false;
    acceptor_->start();
    RawClient client(port_);
    EXPECT_EQ(client.readResponse().status, 503);
    acceptor_->close();
    EXPECT_TRUE(waitUntil([&] { return acceptor_->isClosed(); }));
    EXPECT_TRUE(client.trySend("late"));
    EXPECT_EQ(client.readToEnd(), "");
}

TEST_F(AcceptorTest, DestructionResetsWhoWaits) {
    RawClient client(port_);
    acceptor_.reset();
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(taken_, 0U);
}

} // namespace
