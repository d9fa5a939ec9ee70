#include "websocket/SocketPort.h"

#include "websocket/Fakes.h"
#include "websocket/pool/PollSet.h"

#include <gtest/gtest.h>

using namespace wstest;
using namespace ql::impl;

namespace {

constexpr int Whenever = 60000;

/// Waits until there is something to receive.
bool waitForData(std::uint64_t socket) {
    const WakeSignal none;
    PollSet set(none);
    set.reserve(1);
    set.add(socket, false);
    return set.wait(Whenever) == 1;
}

std::int64_t receive(std::uint64_t socket, unsigned char* data, std::uint64_t size) {
    const SocketBuffer buffer{data, size};
    return receiveFromSocket(socket, SocketBuffers(&buffer, 1));
}

std::int64_t send(std::uint64_t socket, Bytes& bytes) {
    const SocketBuffer buffer{bytes.data(), bytes.size()};
    return sendToSocket(socket, SocketBuffers(&buffer, 1));
}

} // namespace

TEST(SocketPort, ReceivesWhatIsThere) {
    SocketPair pair;
    ASSERT_TRUE(sendAll(pair.client, toBytes("hello")));
    ASSERT_TRUE(waitForData(pair.server));
    Bytes buffer(100);
    EXPECT_EQ(receive(pair.server, buffer.data(), 3), 3);
    EXPECT_EQ(receive(pair.server, buffer.data() + 3, 97), 2);
    EXPECT_EQ(toText(Bytes(buffer.begin(), buffer.begin() + 5)), "hello");
}

TEST(SocketPort, ReceivingFromABlockingSocketNeverBlocks) {
    SocketPair pair;
    prepareSocket(pair.server);
    unsigned char byte = 0;
    EXPECT_LT(receive(pair.server, &byte, 1), 0);
    EXPECT_TRUE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, ReceivingAtTheEndGivesZero) {
    SocketPair pair;
    pair.closeClient();
    ASSERT_TRUE(waitForData(pair.server));
    unsigned char byte = 0;
    EXPECT_EQ(receive(pair.server, &byte, 1), 0);
}

TEST(SocketPort, SendingToABlockingSocketNeverBlocks) {
    SocketPair pair;
    shrinkBuffers(pair.server);
    shrinkBuffers(pair.client);
    prepareSocket(pair.server);
    Bytes bytes(1 << 20);
    std::int64_t result = 0;
    for (int i = 0; i < 1000 && result >= 0; ++i) {
        result = send(pair.server, bytes);
    }
    EXPECT_LT(result, 0);
    EXPECT_TRUE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, SendingToAPeerThatIsGoneFailsWithoutASignal) {
    SocketPair pair;
    pair.resetClient();
    ASSERT_TRUE(waitForData(pair.server));
    Bytes bytes(10);
    std::int64_t result = 0;
    // The first failure takes the reset's error away; only then a socket call would raise the signal.
    for (int i = 0; i < 3; ++i) {
        result = send(pair.server, bytes);
        EXPECT_LT(result, 0);
    }
    EXPECT_FALSE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, InterruptedCallsAreRepeated) {
    ScriptedSocket script;
    script.willReceiveError(SocketError::Interrupted);
    script.willReceiveError(SocketError::Interrupted);
    script.willReceive({7});
    script.willRefuse(SocketError::Interrupted);
    script.willAccept(1);
    Bytes bytes(1);
    EXPECT_EQ(receive(1, bytes.data(), 1), 1);
    EXPECT_EQ(bytes[0], 7);
    EXPECT_EQ(script.receiveSizes.size(), 3U);
    EXPECT_EQ(send(1, bytes), 1);
    EXPECT_EQ(script.sendOffers.size(), 2U);
}

TEST(SocketPort, OtherErrorsAreNotTakenForWouldBlock) {
    ScriptedSocket script;
    script.willReceiveError(SocketError::ConnectionReset);
    script.willReceiveError(SocketError::WouldBlock);
    unsigned char byte = 0;
    EXPECT_LT(receive(1, &byte, 1), 0);
    EXPECT_FALSE(isWouldBlock(lastSocketError()));
    EXPECT_LT(receive(1, &byte, 1), 0);
    EXPECT_TRUE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, PreparedSocketHasNoSendDelay) {
    SocketPair pair;
    ASSERT_TRUE(hasSendDelay(pair.server));
    prepareSocket(pair.server);
    EXPECT_FALSE(hasSendDelay(pair.server));
}

TEST(SocketPort, ReceivesIntoSeveralBuffersInTheirOrder) {
    SocketPair pair;
    ASSERT_TRUE(sendAll(pair.client, toBytes("hello, world")));
    ASSERT_TRUE(waitForData(pair.server));
    Bytes one(3, 'x');
    Bytes two(4, 'x');
    Bytes three(100, 'x');
    const SocketBuffer buffers[] = {{one.data(), 3}, {two.data(), 4}, {three.data(), 100}};
    EXPECT_EQ(receiveFromSocket(pair.server, buffers), 12);
    EXPECT_EQ(toText(one), "hel");
    EXPECT_EQ(toText(two), "lo, ");
    EXPECT_EQ(toText(Bytes(three.begin(), three.begin() + 6)), "worldx");
}

TEST(SocketPort, SendsSeveralBuffersInTheirOrder) {
    SocketPair pair;
    Bytes one = toBytes("hel");
    Bytes two = toBytes("lo, world");
    const SocketBuffer buffers[] = {{one.data(), one.size()}, {two.data(), two.size()}};
    EXPECT_EQ(sendToSocket(pair.server, buffers), 12);
    EXPECT_EQ(toText(receiveExactly(pair.client, 12)), "hello, world");
}

TEST(SocketPort, TakesAsManyBuffersAsItSays) {
    SocketPair pair;
    Bytes bytes = pattern(MostSocketBuffers);
    std::vector<SocketBuffer> buffers;
    for (unsigned char& byte : bytes) {
        buffers.push_back({&byte, 1});
    }
    EXPECT_EQ(sendToSocket(pair.server, buffers), static_cast<std::int64_t>(MostSocketBuffers));
    EXPECT_EQ(receiveExactly(pair.client, MostSocketBuffers), bytes);

    ASSERT_TRUE(sendAll(pair.client, bytes));
    ASSERT_TRUE(waitForData(pair.server));
    const Bytes expected = bytes;
    std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
    EXPECT_EQ(receiveFromSocket(pair.server, buffers), static_cast<std::int64_t>(MostSocketBuffers));
    EXPECT_EQ(bytes, expected);
}
