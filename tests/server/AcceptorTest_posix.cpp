#include "server/Acceptor.h"

#include "support/FakeClock.h"
#include "support/OpenListener.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <sys/socket.h>

namespace {

using ql::impl::AcceptedSocket;
using ql::impl::Acceptor;
using ql::impl::Listener;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using vireotest::letOthersRun;
using vireotest::RawClient;
using vireotest::TestLog;
using vireotest::waitUntil;

std::atomic<bool> isNoneLeft{false};
std::atomic<int> failedAccepts{0};

/// No descriptor is left for who accepts while it lives. The system's limit would starve the sanitizers as well, which
/// open pipes at times that nobody can foresee.
class NoDescriptors {
public:
    NoDescriptors() { isNoneLeft = true; }
    ~NoDescriptors() { isNoneLeft = false; }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
};

/// Fails the first time that it is asked.
class FailingLog : public TestLog {
public:
    bool isLogTypeEnabled(qlLogType /*type*/) const override {
        if (!hasFailed_.exchange(true)) {
            throw std::runtime_error("no line");
        }
        return true;
    }

private:
    mutable std::atomic<bool> hasFailed_{false};
};

} // namespace

// The program's own function goes before that of the shared library.
extern "C" int accept(int listener, sockaddr* address, socklen_t* size) {
    static auto* const next = reinterpret_cast<decltype(&accept)>(dlsym(RTLD_NEXT, "accept"));
    if (isNoneLeft) {
        ++failedAccepts;
        errno = EMFILE;
        return -1;
    }
    return next(listener, address, size);
}

namespace {

TEST(AcceptorWithoutDescriptors, GoesOnWhenItCannotSaySo) {
    const FailingLog log;
    std::atomic<bool> isTaken{false};
    std::vector<std::unique_ptr<Listener>> listeners;
    listeners.push_back(vireotest::openListener());
    const std::uint16_t port = listeners.front()->port();
    Acceptor acceptor(std::move(listeners), 16, [&](const AcceptedSocket& accepted) {
        ql::impl::closeSocket(accepted.socket);
        isTaken = true;
        return true;
    });
    const RawClient client(port);
    {
        const NoDescriptors none;
        acceptor.start();
        EXPECT_TRUE(log.waitFor(qlLogType::Failure, "a pause in accepting threw an exception : no line"));
        EXPECT_TRUE(log.waitFor(qlLogType::Failure, "Cannot accept connections : "));
    }
    EXPECT_TRUE(waitUntil([&] { return isTaken.load(); }));
}

/// An acceptor at a clock that moves as the test says, so that it sees each pause.
class AcceptorAtAWall : public testing::Test {
protected:
    AcceptorAtAWall() {
        std::vector<std::unique_ptr<Listener>> listeners;
        listeners.push_back(vireotest::openListener());
        port_ = listeners.front()->port();
        acceptor_ = std::make_unique<Acceptor>(std::move(listeners), 16, [this](const AcceptedSocket& accepted) {
            ql::impl::closeSocket(accepted.socket);
            ++taken_;
            return true;
        });
        failedAccepts = 0;
        acceptor_->start();
    }

    /// Has nobody accepted who connects, for so many tries.
    void standBeforeAWall(int tries) {
        const int before = failedAccepts;
        const NoDescriptors none;
        clients_.emplace_back(port_);
        EXPECT_TRUE(waitUntil([&] { return failedAccepts == before + 1; }));
        for (int i = 2; i <= tries; ++i) {
            letOthersRun();
            EXPECT_EQ(failedAccepts, before + i - 1) << "it does not pause";
            clock_.advanceMs(PauseMs);
            EXPECT_TRUE(waitUntil([&] { return failedAccepts == before + i; }));
        }
    }

    void passTheWall() {
        const int before = taken_;
        clock_.advanceMs(PauseMs);
        EXPECT_TRUE(waitUntil([&] { return taken_ == before + 1; }));
    }

    static constexpr int PauseMs = 100;
    const TestLog log_;
    vireotest::FakeClock clock_;
    std::uint16_t port_ = 0;
    std::atomic<int> taken_{0};
    std::vector<RawClient> clients_;
    std::unique_ptr<Acceptor> acceptor_;
};

TEST_F(AcceptorAtAWall, PausesAfterEachTryAndTellsOfBeginAndEnd) {
    standBeforeAWall(3);
    EXPECT_THAT(log_.texts(qlLogType::Failure), ElementsAre(HasSubstr("Cannot accept connections : ")));
    passTheWall();
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "Connections are accepted again : 3 failed in 300 ms"));
    EXPECT_THAT(log_.linesOf(qlLogType::Failure), SizeIs(2));
}

TEST_F(AcceptorAtAWall, TellsOfOneAMinute) {
    standBeforeAWall(1);
    passTheWall();
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "Connections are accepted again : 1 failed in 100 ms"));
    standBeforeAWall(2);
    passTheWall();
    clock_.advanceMs(60000);
    standBeforeAWall(2);
    passTheWall();
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "Connections are accepted again : 2 failed in 200 ms"));
    EXPECT_THAT(log_.linesOf(qlLogType::Failure), SizeIs(4));
}

} // namespace
