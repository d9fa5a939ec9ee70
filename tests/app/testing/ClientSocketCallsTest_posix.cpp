#include "app/testing/ClientSocketCalls.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include <sys/socket.h>
#include <unistd.h>

namespace {

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

} // namespace
