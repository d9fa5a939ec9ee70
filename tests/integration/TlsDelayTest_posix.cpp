#include "integration/TlsServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <arpa/inet.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vireotest {
namespace {

using SystemCall = int (*)(int, sockaddr*, socklen_t*);

/// The port that getsockname() or getpeername() gives, if it is a socket that has one.
std::optional<std::uint16_t> portBy(SystemCall call, int descriptor) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (call(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0 || address.sin_family != AF_INET) {
        return std::nullopt;
    }
    return ntohs(address.sin_port);
}

/// For each connection of this process to clients of the port: whether it sends small pieces at once.
std::vector<bool> sendingAtOnce(std::uint16_t port) {
    std::vector<bool> atOnce;
    for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename().string());
        if (portBy(::getsockname, descriptor) == port && portBy(::getpeername, descriptor)) {
            int isAtOnce = 0;
            socklen_t size = sizeof isAtOnce;
            EXPECT_EQ(::getsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &isAtOnce, &size), 0);
            atOnce.push_back(isAtOnce != 0);
        }
    }
    return atOnce;
}

TEST_F(TlsServing, WebSocketsSendSmallPiecesAtOnce) {
    start();
    TlsClient client(port_);
    upgrade(client);
    client.send(textFrame("a message"));
    EXPECT_EQ(readFrame(client).second, "a message");
    EXPECT_EQ(sendingAtOnce(port_), std::vector<bool>{true});
    client.close();
}

} // namespace
} // namespace vireotest
