#include "engine/Listener.h"

#include "engine/ListenEndpointData.h"
#include "support/OpenListener.h"
#include "support/RawSocket.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

// What listens without a port of its own: Unix sockets and those that were inherited.

namespace {

namespace fs = std::filesystem;

using ql::http::ListenEndpoint;
using ql::impl::AcceptedSocket;
using ql::impl::ListenEndpointData;
using ql::impl::Listener;
using ql::impl::StartFailure;
using vireotest::openListener;
using vireotest::RawSocket;
using vireotest::waitUntil;
using Outcome = Listener::Outcome;
using StartError = ql::http::HttpServer::StartError;

/// What opens a Unix socket calls these of the system's functions one after the other.
enum class Step { None, Remove, Bind, Listen };

/// Before which of them something is to happen, once.
std::atomic<Step> awaitedStep{Step::None};
std::function<void()> atStep;
/// Whether the system has no room for who wants to listen.
std::atomic<bool> isRoomLacking{false};
/// Whether the directory lets nothing be removed.
std::atomic<bool> isRemovalRefused{false};

void passStep(Step step) {
    if (awaitedStep.compare_exchange_strong(step, Step::None)) {
        atStep();
    }
}

/// The function that the program would call if this file did not stand in front of it.
template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

StartFailure failureOf(const ListenEndpoint& endpoint) {
    StartFailure failure;
    EXPECT_EQ(Listener::Open(ListenEndpointData::of(endpoint), 16, failure), nullptr);
    EXPECT_NE(failure.text, "");
    return failure;
}

bool isAccepted(const Listener& listener) {
    AcceptedSocket accepted;
    if (!waitUntil([&] { return listener.accept(accepted) == Outcome::Accepted; })) {
        return false;
    }
    ql::impl::closeSocket(accepted.socket);
    return true;
}

/// Binds a socket to a path. @return the same.
int boundTo(int socket, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return socket;
}

/// @return a socket at a path, with or without listening there.
int boundAt(const std::string& path, int backlog) {
    const int socket = boundTo(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), path);
    if (backlog >= 0) {
        EXPECT_EQ(::listen(socket, backlog), 0);
    }
    return socket;
}

class UnixListener : public testing::Test {
public:
    ~UnixListener() override { fs::remove_all(directory_); }

protected:
    UnixListener() {
        fs::remove_all(directory_); // of a process that was killed
        fs::create_directory(directory_);
    }

    ListenEndpoint endpoint() const { return ListenEndpoint::Unix(path_); }
    RawSocket connect() const { return RawSocket::Connect(path_, 0, 0); }
    void leaveStaleFile() const { ::close(boundAt(path_, 1)); }

    const fs::path directory_ = fs::temp_directory_path() / ("vireo-listener-" + std::to_string(::getpid()));
    const std::string path_ = directory_ / "socket";
};

TEST_F(UnixListener, AcceptsWhoConnectsWithoutAnAddress) {
    const auto listener = openListener(endpoint());
    EXPECT_EQ(listener->port(), 0);
    const RawSocket client = connect();
    ASSERT_TRUE(client.isOpen());
    AcceptedSocket accepted;
    ASSERT_EQ(listener->accept(accepted), Outcome::Accepted);
    EXPECT_EQ(accepted.address.family(), AF_UNIX);
    EXPECT_EQ(accepted.address.clientKey(), std::nullopt);
    ql::impl::closeSocket(accepted.socket);
}

TEST_F(UnixListener, FileHasItsModeAndIsRemovedAtTheEnd) {
    for (const unsigned int mode : {0600U, 0666U, 0640U}) {
        const auto listener = openListener(ListenEndpoint::Unix(path_, mode));
        EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(mode));
    }
    EXPECT_TRUE(fs::is_empty(directory_));
}

TEST_F(UnixListener, PathMayBeRelativeAndTheProcessGoElsewhere) {
    const fs::path before = fs::current_path();
    fs::current_path(directory_);
    auto listener = openListener(ListenEndpoint::Unix("socket"));
    fs::current_path(before);
    EXPECT_TRUE(connect().isOpen());
    listener.reset();
    EXPECT_TRUE(fs::is_empty(directory_));
}

TEST_F(UnixListener, TakesThePlaceOfAStaleFile) {
    leaveStaleFile();
    const auto listener = openListener(endpoint());
    EXPECT_TRUE(connect().isOpen());
    EXPECT_TRUE(isAccepted(*listener));
}

TEST_F(UnixListener, SaysWhyAStaleFileCannotBeRemoved) {
    leaveStaleFile();
    isRemovalRefused = true;
    EXPECT_EQ(failureOf(endpoint()).error, StartError::PermissionDenied);
    isRemovalRefused = false;
}

TEST_F(UnixListener, LeavesWhoAnswersThere) {
    const auto first = openListener(endpoint());
    EXPECT_EQ(failureOf(endpoint()).error, StartError::AddressInUse);
    EXPECT_TRUE(connect().isOpen());
    EXPECT_TRUE(isAccepted(*first));
}

TEST_F(UnixListener, LeavesWhoIsTooBusyToAnswer) {
    const int busy = boundAt(path_, 0);
    const RawSocket waiting = connect();
    EXPECT_EQ(failureOf(endpoint()).error, StartError::AddressInUse);
    EXPECT_TRUE(fs::exists(path_));
    ::close(busy);
}

TEST_F(UnixListener, LeavesWhateverIsNoSocket) {
    std::ofstream(path_) << "precious";
    EXPECT_EQ(failureOf(endpoint()).error, StartError::AddressInUse);
    EXPECT_EQ(fs::file_size(path_), 8U);
    fs::remove(path_);
    fs::create_directory(path_);
    EXPECT_EQ(failureOf(endpoint()).error, StartError::AddressInUse);
    fs::remove(path_);
}

TEST_F(UnixListener, LeavesALinkToAStaleFile) {
    leaveStaleFile();
    const std::string link = directory_ / "link";
    fs::create_symlink(path_, link);
    EXPECT_EQ(failureOf(ListenEndpoint::Unix(link)).error, StartError::AddressInUse);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(fs::exists(path_));
}

TEST_F(UnixListener, DoesNotListenAtWhatIsNoPath) {
    const std::string abstract("\0name", 5);
    // This process' own.
    std::string longest = directory_ / "long";
    longest.resize(107, 'x');
    for (const std::string& path : {std::string(), abstract, path_ + abstract, longest + 'x',
                                    directory_.string() + "/none/socket", std::string("/dev/null/socket")}) {
        EXPECT_EQ(failureOf(ListenEndpoint::Unix(path)).error, StartError::InvalidAddress) << path;
        EXPECT_TRUE(fs::is_empty(directory_)) << path;
    }
    EXPECT_EQ(failureOf(ListenEndpoint::Unix(longest + 'x')).text, "the path is too long");
    const auto listener = openListener(ListenEndpoint::Unix(longest));
    EXPECT_TRUE(fs::exists(longest));
}

TEST_F(UnixListener, LeavesNoFileWhereItCannotListen) {
    isRoomLacking = true;
    EXPECT_EQ(failureOf(endpoint()).error, StartError::OutOfResources);
    isRoomLacking = false;
    EXPECT_TRUE(fs::is_empty(directory_));
}

TEST_F(UnixListener, LeavesTheFileThatHasTakenItsPlace) {
    auto listener = openListener(endpoint());
    fs::remove(path_);
    const auto successor = openListener(endpoint());
    listener.reset();
    EXPECT_TRUE(connect().isOpen());
    EXPECT_TRUE(isAccepted(*successor));
}

TEST_F(UnixListener, FileWhosePermissionsWereChangedIsRemovedAllTheSame) {
    auto listener = openListener(endpoint());
    fs::permissions(path_, fs::perms::all);
    listener.reset();
    EXPECT_TRUE(fs::is_empty(directory_));
}

TEST_F(UnixListener, RefusesNewOnesByRemovingItsFileAndKeepsThoseThatHaveCome) {
    const auto listener = openListener(endpoint());
    const RawSocket client = connect();
    listener->refuseNew();
    EXPECT_FALSE(fs::exists(path_));
    EXPECT_TRUE(isAccepted(*listener));
    const auto successor = openListener(endpoint());
    EXPECT_TRUE(connect().isOpen());
}

TEST_F(UnixListener, WaitsForItsTurnAtTheDirectory) {
    const int directory = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(directory, LOCK_EX), 0);
    std::thread other([directory] {
        vireotest::letOthersRun();
        ::close(directory);
    });
    EXPECT_NE(openListener(endpoint()), nullptr);
    other.join();
}

TEST_F(UnixListener, DoesNotWaitForEver) {
    const int directory = ::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(directory, LOCK_EX), 0);
    EXPECT_NE(failureOf(endpoint()).error, StartError::None);
    EXPECT_TRUE(fs::is_empty(directory_));
    ::close(directory);
}

class UnixListenerAtAStep : public UnixListener, public testing::WithParamInterface<Step> {
public:
    ~UnixListenerAtAStep() override { awaitedStep = Step::None; }
};

TEST_P(UnixListenerAtAStep, LetsNobodyElseBegin) {
    leaveStaleFile();
    std::future<std::unique_ptr<Listener>> other;
    atStep = [&] {
        other = std::async(std::launch::async, [this] {
            StartFailure failure;
            return Listener::Open(ListenEndpointData::of(endpoint()), 16, failure);
        });
        vireotest::letOthersRun();
    };
    awaitedStep = GetParam();
    const auto listener = openListener(endpoint());
    EXPECT_EQ(other.get(), nullptr);
    EXPECT_TRUE(connect().isOpen());
    EXPECT_TRUE(isAccepted(*listener));
}

INSTANTIATE_TEST_SUITE_P(Before, UnixListenerAtAStep, testing::Values(Step::Remove, Step::Bind, Step::Listen));

// ---- Inherited ----

class InheritedListener : public UnixListener {
protected:
    /// Connections that wait at a socket are accepted by whoever has it.
    static void expectAcceptsAt(int socket) {
        const int accepted = ::accept(socket, nullptr, nullptr);
        EXPECT_GE(accepted, 0);
        ::close(accepted);
    }
};

TEST_F(InheritedListener, AcceptsAndLeavesTheSocketToItsOwner) {
    const auto original = openListener();
    const int socket = static_cast<int>(original->socket());
    for (int run = 0; run < 2; ++run) {
        const auto listener = openListener(ListenEndpoint::Inherited(original->socket()));
        EXPECT_NE(listener->socket(), original->socket());
        EXPECT_EQ(listener->port(), original->port());
        const RawSocket client = RawSocket::Connect("127.0.0.1", original->port(), 0);
        EXPECT_TRUE(isAccepted(*listener));
        listener->refuseNew();
        const RawSocket late = RawSocket::Connect("127.0.0.1", original->port(), 0);
        ASSERT_TRUE(late.isOpen()) << "others go on with it";
        EXPECT_TRUE(waitUntil([&] { return isAccepted(*original); }));
    }
    const RawSocket client = RawSocket::Connect("127.0.0.1", original->port(), 0);
    EXPECT_TRUE(client.isOpen());
    expectAcceptsAt(socket);
}

TEST_F(InheritedListener, MayBeAUnixSocketWhoseFileStays) {
    const int original = boundAt(path_, 16);
    {
        const auto listener = openListener(ListenEndpoint::Inherited(static_cast<std::uint64_t>(original)));
        EXPECT_EQ(listener->port(), 0);
        const RawSocket client = connect();
        EXPECT_TRUE(isAccepted(*listener));
        listener->refuseNew();
    }
    EXPECT_TRUE(fs::exists(path_));
    const RawSocket client = connect();
    EXPECT_TRUE(client.isOpen());
    expectAcceptsAt(original);
    ::close(original);
}

TEST_F(InheritedListener, IsNotPassedOn) {
    const auto original = openListener();
    const auto listener = openListener(ListenEndpoint::Inherited(original->socket()));
    EXPECT_EQ(::fcntl(static_cast<int>(listener->socket()), F_GETFD), FD_CLOEXEC);
}

TEST_F(InheritedListener, IsNoneOfWhatDoesNotListen) {
    const int silent = boundAt(path_, -1);
    const int packets = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::listen(boundTo(packets, directory_ / "packets"), 1), 0);
    const int datagrams = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    for (const int descriptor : {silent, packets, datagrams, pipe[0]}) {
        EXPECT_EQ(failureOf(ListenEndpoint::Inherited(static_cast<std::uint64_t>(descriptor))).error,
                  StartError::InvalidAddress);
        EXPECT_EQ(::close(descriptor), 0) << "it is still its owner's";
    }
    ::close(pipe[1]);
    for (const std::uint64_t none : {std::uint64_t{1000000}, ~std::uint64_t{0}, std::uint64_t{1} << 32U}) {
        EXPECT_EQ(failureOf(ListenEndpoint::Inherited(none)).error, StartError::InvalidAddress) << none;
    }
}

// NOLINTBEGIN(concurrency-mt-unsafe): this test has no other threads

/// What a service manager says, as long as this lives.
class Environment {
public:
    Environment(const std::string& pid, const std::string& count) {
        ::setenv("LISTEN_PID", pid.c_str(), 1);
        ::setenv("LISTEN_FDS", count.c_str(), 1);
    }
    ~Environment() {
        ::unsetenv("LISTEN_PID");
        ::unsetenv("LISTEN_FDS");
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
};

// NOLINTEND(concurrency-mt-unsafe)

std::vector<std::string> inherited() {
    std::vector<std::string> names;
    for (const ListenEndpoint& endpoint : ListenEndpoint::FromEnvironment()) {
        names.push_back(endpoint.toString());
    }
    return names;
}

TEST(InheritedSockets, AreNoneThatAreNotForThisProcess) {
    EXPECT_TRUE(inherited().empty());
    const std::string self = std::to_string(::getpid());
    for (const auto& [pid, count] : std::vector<std::pair<std::string, std::string>>{{"1", "1"},
                                                                                     {"", "1"},
                                                                                     {self + "x", "1"},
                                                                                     {self, ""},
                                                                                     {self, "0"},
                                                                                     {self, "-1"},
                                                                                     {self, "1x"},
                                                                                     {self, "99999999999"}}) {
        const Environment environment(pid, count);
        EXPECT_TRUE(inherited().empty()) << pid << " " << count;
    }
}

TEST(InheritedSockets, BeginWithTheThirdAndEndWithTheFirstThatIsNotThere) {
    const std::string self = std::to_string(::getpid());
    const int third = ::fcntl(3, F_GETFD) < 0 ? ::dup2(0, 3) : -1;
    {
        const Environment environment(self, "1");
        EXPECT_EQ(inherited(), std::vector<std::string>{"fd:3"});
        EXPECT_EQ(::fcntl(3, F_GETFD), FD_CLOEXEC);
    }
    {
        const Environment environment(self, "2000000000");
        const std::vector<std::string> names = inherited();
        EXPECT_EQ(names.front(), "fd:3");
        EXPECT_LT(names.size(), 1000U);
    }
    if (third >= 0) {
        ::close(third);
    }
}

} // namespace

// The program's own functions go before those of shared libraries.

extern "C" {

int unlinkat(int directory, const char* path, int flags) noexcept {
    static auto* const next = real<decltype(unlinkat)>("unlinkat");
    passStep(Step::Remove);
    if (isRemovalRefused) {
        errno = EACCES;
        return -1;
    }
    return next(directory, path, flags);
}

int bind(int socket, const sockaddr* address, socklen_t size) noexcept {
    static auto* const next = real<decltype(bind)>("bind");
    passStep(Step::Bind);
    return next(socket, address, size);
}

int listen(int socket, int backlog) noexcept {
    static auto* const next = real<decltype(listen)>("listen");
    passStep(Step::Listen);
    if (isRoomLacking) {
        errno = ENOBUFS;
        return -1;
    }
    return next(socket, backlog);
}

} // extern "C"
