#include "server/Acceptor.h"

#include "support/OpenListener.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
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
using testing::SizeIs;
using vireotest::letOthersRun;
using vireotest::RawClient;
using vireotest::TestLog;
using vireotest::waitUntil;

std::atomic<bool> isNoneLeft{false};

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

TEST(AcceptorWithoutDescriptors, PausesSaysSoOnceAndGoesOn) {
    const TestLog log;
    std::atomic<int> taken{0};
    std::vector<std::unique_ptr<Listener>> listeners;
    listeners.push_back(vireotest::openListener());
    const std::uint16_t port = listeners.front()->port();
    Acceptor acceptor(std::move(listeners), 16, [&](const AcceptedSocket& accepted) {
        ++taken;
        ql::impl::closeSocket(accepted.socket);
        return true;
    });
    std::vector<RawClient> clients;
    {
        for (int i = 0; i < 3; ++i) {
            clients.emplace_back(port);
        }
        const NoDescriptors none;
        acceptor.start();
        EXPECT_TRUE(log.waitFor(qlLogType::Failure, "Cannot accept connections : "));
        // Two pauses and more.
        for (int i = 0; i < 10; ++i) {
            letOthersRun();
        }
        EXPECT_EQ(taken, 0);
    }
    EXPECT_TRUE(waitUntil([&] { return taken == 3; }));
    EXPECT_THAT(log.linesOf(qlLogType::Failure), SizeIs(1));
}

} // namespace
