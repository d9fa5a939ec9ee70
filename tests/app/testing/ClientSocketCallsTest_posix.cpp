#include "app/testing/ClientSocketCalls.h"

#include "app/testing/ClientSocket.h"
#include "support/RawSocket.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using vireo::impl::ClientSocket;
using vireo::impl::receiveSome;
using vireo::impl::sendSome;
using Outcome = vireo::impl::TransferResult::Outcome;

TEST(ClientSocketCalls, TellTheEndFromNothingYetAndFromABreak) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    const auto ours = static_cast<std::uintptr_t>(ends[0]);
    std::array<char, 8> room{};
    EXPECT_EQ(receiveSome(ours, room).outcome, Outcome::WouldBlock);
    ::close(ends[1]);
    errno = EAGAIN; // as the last call of all may have left it
    EXPECT_EQ(receiveSome(ours, room).outcome, Outcome::Done);
    EXPECT_EQ(receiveSome(ours, room).bytes, 0U);
    EXPECT_EQ(sendSome(ours, "x").outcome, Outcome::Broken);
    ::close(ends[0]);
}

TEST(ClientSocket, ResetsWhereACloseWouldEnd) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const place = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(::bind(listener, place, size), 0);
    ASSERT_EQ(::listen(listener, 2), 0);
    ASSERT_EQ(::getsockname(listener, place, &size), 0);
    const auto connect = [&] {
        return ClientSocket::Connect("127.0.0.1", std::to_string(ntohs(address.sin_port)), vireotest::soon());
    };
    const auto isReset = [&] {
        const int accepted = ::accept(listener, nullptr, nullptr);
        char byte = 0;
        const bool hasFailed = ::recv(accepted, &byte, 1, 0) < 0 && errno == ECONNRESET;
        ::close(accepted);
        return hasFailed;
    };
    ClientSocket closed = connect();
    closed.close();
    EXPECT_FALSE(isReset());
    ClientSocket reset = connect();
    reset.reset();
    EXPECT_TRUE(isReset());
    ::close(listener);
}

} // namespace
