#include "app/run/ServiceManager.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace vireo::impl {
namespace {

/// A service manager's end of NOTIFY_SOCKET.
class FakeManager {
public:
    /// @param name with '@' in front one that is no file.
    explicit FakeManager(const std::string& name) : name_(name), socket_(::socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, name.size());
        if (name.front() == '@') {
            address.sun_path[0] = '\0';
        }
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), size), 0);
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~FakeManager() {
        ::unsetenv("NOTIFY_SOCKET");
        ::close(socket_);
        if (name_.front() != '@') {
            ::unlink(name_.c_str());
        }
    }
    FakeManager(const FakeManager&) = delete;
    FakeManager& operator=(const FakeManager&) = delete;

    std::string receive() const {
        std::array<char, 256> room{};
        const ssize_t size = ::recv(socket_, room.data(), room.size(), MSG_DONTWAIT);
        return size < 0 ? "nothing" : std::string(room.data(), static_cast<std::size_t>(size));
    }

private:
    const std::string name_;
    const int socket_;
};

std::string uniqueName() {
    return "vireo-notify-" + std::to_string(::getpid());
}

TEST(ServiceManager, IsToldByTheFileThatItNames) {
    const FakeManager manager(::testing::TempDir() + uniqueName());
    tellServiceManager("READY=1");
    EXPECT_EQ(manager.receive(), "READY=1");
    EXPECT_EQ(manager.receive(), "nothing");
}

TEST(ServiceManager, IsToldByANameThatIsNoFile) {
    const FakeManager manager("@" + uniqueName());
    tellServiceManager("STOPPING=1");
    EXPECT_EQ(manager.receive(), "STOPPING=1");
}

TEST(ServiceManager, IsNotNeeded) {
    // There is a manager, of which nobody says any more where it is.
    const FakeManager manager(::testing::TempDir() + uniqueName());
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_NO_THROW(tellServiceManager("READY=1"));
    for (const std::string& name : {std::string("/nowhere/socket"), std::string(200, 'x'), std::string()}) {
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
        EXPECT_NO_THROW(tellServiceManager("READY=1")) << name;
    }
    EXPECT_EQ(manager.receive(), "nothing");
}

TEST(ServiceManager, IsToldWhenAReloadBegan) {
    const std::string state = reloadingState();
    const std::string begin = "RELOADING=1\nMONOTONIC_USEC=";
    ASSERT_EQ(state.substr(0, begin.size()), begin);
    EXPECT_GT(std::stoll(state.substr(begin.size())), 0);
}

} // namespace
} // namespace vireo::impl
