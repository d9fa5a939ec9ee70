#include "engine/SendProgress.h"

#include "support/WaitUntil.h"
#include "websocket/TestSockets.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace {

using ql::impl::acknowledgedBytes;
using vireotest::waitUntil;

TEST(SendProgress, CountsWhatThePeerHasTaken) {
    constexpr std::size_t Size = 1000;
    const wstest::SocketPair sockets;
    const auto before = acknowledgedBytes(sockets.server);
    ASSERT_TRUE(before);
    ASSERT_TRUE(wstest::sendAll(sockets.server, wstest::Bytes(Size, 0)));
    EXPECT_TRUE(waitUntil([&] { return acknowledgedBytes(sockets.server) == *before + Size; }));
}

TEST(SendProgress, OfNoConnectionIsNotKnown) {
    EXPECT_FALSE(acknowledgedBytes(static_cast<std::uint64_t>(-1)));
}

} // namespace
