#include "reliability/ServerProcess_posix.h"

#include "support/RawSocket.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace vireotest {

namespace {

constexpr rlim_t SpareBytes = rlim_t{4} << 20U;
constexpr rlim_t FileBytes = rlim_t{256} << 10U;
/// Of nobody else: what it runs does not count.
constexpr uid_t User = 54321;

void limit(decltype(RLIMIT_NOFILE) resource, rlim_t value) {
    rlimit limits{};
    ::getrlimit(resource, &limits);
    limits.rlim_cur = std::min(value, limits.rlim_max);
    if (::setrlimit(resource, &limits) != 0) {
        throw std::runtime_error("cannot set a limit");
    }
}

/// The lowest number that a new descriptor would have.
rlim_t nextDescriptor() {
    const int next = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    ::close(next);
    return static_cast<rlim_t>(next);
}

rlim_t memoryBytes() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
}

/// @return what came; '\0' at the end, and when nothing comes in time.
char receive(int pipe, int timeMs) {
    pollfd polled{pipe, POLLIN, 0};
    char byte = '\0';
    return ::poll(&polled, 1, timeMs) == 1 && ::read(pipe, &byte, 1) == 1 ? byte : '\0';
}

int patienceMs() {
    return static_cast<int>(
        std::chrono::ceil<std::chrono::milliseconds>(soon() - std::chrono::steady_clock::now()).count());
}

} // namespace

void standBefore(Wall wall) {
    static const auto before = [] {
        rlimit descriptors{};
        ::getrlimit(RLIMIT_NOFILE, &descriptors);
        return descriptors.rlim_cur;
    }();
    limit(RLIMIT_NOFILE, wall == Wall::Descriptors ? nextDescriptor() : before);
    limit(RLIMIT_AS, wall == Wall::Memory ? memoryBytes() + SpareBytes : RLIM_INFINITY);
    limit(RLIMIT_NPROC, wall == Wall::Threads ? 0 : RLIM_INFINITY);
    limit(RLIMIT_FSIZE, wall == Wall::FileSize ? FileBytes : RLIM_INFINITY);
}

ServerProcess::ServerProcess(const std::function<void(const Serve& serve)>& run, const std::function<void()>& prepare) {
    int orders[2];
    int answers[2];
    if (::pipe2(orders, O_CLOEXEC) != 0 || ::pipe2(answers, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipes");
    }
    process_ = ::fork();
    if (process_ == 0) {
        ::close(orders[1]);
        ::close(answers[0]);
        orders_ = orders[0];
        answers_ = answers[1];
        prepare();
        runChild(run);
    }
    ::close(orders[0]);
    ::close(answers[1]);
    orders_ = orders[1];
    answers_ = answers[0];
    if (receive(answers_, patienceMs()) != 'p' || ::read(answers_, &port_, sizeof port_) != sizeof port_) {
        ADD_FAILURE() << "the server does not start : " << log();
    }
}

ServerProcess::~ServerProcess() {
    end();
}

void ServerProcess::set(Wall wall) {
    const char order = static_cast<char>('0' + static_cast<int>(wall));
    EXPECT_EQ(::write(orders_, &order, 1), 1);
    EXPECT_EQ(receive(answers_, patienceMs()), 's') << "the wall does not stand : " << log();
}

std::size_t ServerProcess::logged(const std::string& text) const {
    const std::string all = log();
    std::size_t count = 0;
    for (std::size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        ++count;
    }
    return count;
}

void ServerProcess::end() {
    if (process_ <= 0) {
        return;
    }
    ::close(orders_);
    const char last = receive(answers_, patienceMs());
    EXPECT_EQ(last, 'e') << "the server hangs or has crashed : " << log();
    if (last != 'e') {
        ::kill(process_, SIGKILL);
    }
    int status = 0;
    ::waitpid(process_, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status << " : " << log();
    ::close(answers_);
    process_ = -1;
}

void ServerProcess::runChild(const std::function<void(const Serve& serve)>& run) {
    // A limit on threads does not hold for root.
    const bool isOwn = ::getuid() != 0 || (::chown(directory_.path().c_str(), User, User) == 0 && ::setuid(User) == 0);
    const int log = ::open((directory_.path() / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    ::dup2(log, STDERR_FILENO);
    ::dup2(log, STDOUT_FILENO);
    // Those of threads have addresses in reserve, so that they would not meet the limit.
    ::mallopt(M_ARENA_MAX, 1);
    // Its default ends the process, which a library has no right to change.
    std::signal(SIGXFSZ, SIG_IGN);
    const auto answer = [this](const void* bytes, std::size_t size) { return ::write(answers_, bytes, size) >= 0; };
    bool isFine = isOwn && log >= 0;
    try {
        standBefore(Wall::None);
        run([&](std::uint16_t port) {
            isFine = answer("p", 1) && answer(&port, sizeof port) && isFine;
            while (const char order = receive(orders_, -1)) {
                standBefore(static_cast<Wall>(order - '0'));
                isFine = answer("s", 1) && isFine;
            }
        });
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        isFine = false;
    }
    isFine = answer("e", 1) && isFine && !testing::Test::HasFailure();
    std::_Exit(isFine ? 0 : 1);
}

} // namespace vireotest
