#include "server/Acceptor.h"

#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using ql::impl::AcceptedSocket;
using ql::impl::Acceptor;
using ql::impl::Listener;
using testing::SizeIs;
using vireotest::letOthersRun;
using vireotest::RawClient;
using vireotest::TestLog;
using vireotest::waitUntil;

/// No descriptor is left while it lives.
class NoDescriptors {
public:
    NoDescriptors() {
        if (::getrlimit(RLIMIT_NOFILE, &before_) != 0) {
            throw std::runtime_error("no limit to change");
        }
        const int next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::close(next);
        rlimit none = before_;
        none.rlim_cur = static_cast<rlim_t>(next);
        (void)::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { (void)::setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit before_{};
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

TEST(AcceptorWithoutDescriptors, GoesOnWhenItCannotSaySo) {
    const FailingLog log;
    std::atomic<bool> isTaken{false};
    int error = 0;
    std::unique_ptr<Listener> listener = Listener::Open(0, false, 16, error);
    const std::uint16_t port = listener->port();
    Acceptor acceptor(std::move(listener), 16, [&](const AcceptedSocket& accepted) {
        ql::impl::closeSocket(accepted.socket);
        isTaken = true;
        return true;
    });
    const RawClient client(port);
    {
        EXPECT_TRUE(acceptor.waitThread(0)); // UBSan looks at the type of an object once, and takes descriptors for it
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
    int error = 0;
    std::unique_ptr<Listener> listener = Listener::Open(0, false, 16, error);
    const std::uint16_t port = listener->port();
    Acceptor acceptor(std::move(listener), 16, [&](const AcceptedSocket& accepted) {
        ++taken;
        ql::impl::closeSocket(accepted.socket);
        return true;
    });
    std::vector<RawClient> clients;
    {
        for (int i = 0; i < 3; ++i) {
            clients.emplace_back(port);
        }
        EXPECT_TRUE(acceptor.waitThread(0)); // UBSan looks at the type of an object once, and takes descriptors for it
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
