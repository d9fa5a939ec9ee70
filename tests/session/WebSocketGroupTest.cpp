#include "vireo/WebSocketGroup.h"
#include "session/SessionBench.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace sessiontest;
using ql::http::WebSocketGroup;
using ql::http::WebSocketHandle;
using ql::http::WebSocketMessage;
using ql::http::WebSocketOptions;
using ql::http::WebSocketSend;

namespace {

class WebSocketGroupTest : public testing::Test {
protected:
    WebSocketGroupTest() {
        for (Peer& peer : peers) {
            bench.open(peer);
        }
    }

    void expect(Peer& peer, const std::string& text) { EXPECT_EQ(peer.receive(), (Frame{TextFrame, text})); }

    std::array<Peer, 3> peers;
    WebSocketGroup group;
    SessionBench bench;
};

} // namespace

TEST_F(WebSocketGroupTest, MembersGetWhatIsSent) {
    EXPECT_EQ(group.sendText("nobody hears this"), 0U);
    for (Peer& peer : peers) {
        EXPECT_TRUE(group.add(peer.handle));
        EXPECT_FALSE(group.add(peer.handle)) << "once";
    }
    EXPECT_EQ(group.size(), 3U);
    EXPECT_EQ(group.sendText("all"), 3U);
    EXPECT_EQ(group.sendText("but the second", peers[1].handle), 2U);
    EXPECT_EQ(group.sendBinary(wstest::Bytes{'b'}), 3U);
    EXPECT_EQ(group.send(WebSocketMessage::Text("shared")), 3U);
    for (std::size_t i = 0; i < peers.size(); ++i) {
        expect(peers[i], "all");
        if (i != 1) {
            expect(peers[i], "but the second");
        }
        EXPECT_EQ(peers[i].receive(), (Frame{BinaryFrame, "b"}));
        expect(peers[i], "shared");
    }
}

TEST_F(WebSocketGroupTest, WhoHasLeftGetsNothing) {
    group.add(peers[0].handle);
    group.add(peers[1].handle);
    EXPECT_TRUE(group.remove(peers[0].handle));
    EXPECT_FALSE(group.remove(peers[0].handle));
    EXPECT_EQ(group.size(), 1U);
    EXPECT_EQ(group.sendText("x"), 1U);
    expect(peers[1], "x");
    peers[0].handle.sendText("alone");
    expect(peers[0], "alone");
}

TEST_F(WebSocketGroupTest, ClosedMembersLeaveByThemselves) {
    for (Peer& peer : peers) {
        group.add(peer.handle);
    }
    peers[0].handle.close();
    peers[1].upgrade.sockets.closeClient();
    peers[1].record.waitForEnd();
    EXPECT_EQ(group.size(), 1U);
    EXPECT_EQ(group.sendText("x"), 1U);
    expect(peers[2], "x");
    EXPECT_FALSE(group.add(peers[0].handle));
    EXPECT_FALSE(group.remove(peers[0].handle)) << "it has gone when most had";
}

TEST_F(WebSocketGroupTest, ClosedMembersMakeRoomForNewOnes) {
    for (int i = 0; i < 100; ++i) {
        const OpenPeer other;
        group.add(other.handle);
    }
    group.add(peers[0].handle);
    EXPECT_TRUE(group.remove(peers[0].handle));
    EXPECT_EQ(group.size(), 0U);
}

TEST_F(WebSocketGroupTest, TakesInNobodyWithoutAConnection) {
    EXPECT_FALSE(group.add(WebSocketHandle()));
    Peer early;
    EXPECT_FALSE(group.add(early.session().getHandle()));
    EXPECT_EQ(group.size(), 0U);
}

TEST_F(WebSocketGroupTest, TextHasToBeOne) {
    group.add(peers[0].handle);
    EXPECT_THROW(group.sendText("\xFF"), std::invalid_argument);
}

TEST_F(WebSocketGroupTest, FullMemberGoesWithoutTheMessageAndHoldsUpNobody) {
    Peer slow;
    ql::impl::SessionSettings settings;
    settings.queuePolicy = WebSocketOptions::QueuePolicy::Wait;
    settings.maxQueuedBytes = 1000000;
    bench.open(slow, settings);
    wstest::shrinkBuffers(slow.upgrade.sockets.server);
    group.add(slow.handle);
    group.add(peers[0].handle);
    const std::string text(600000, 'x');
    std::thread reader([&] {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(peers[0].receive().payload.size(), text.size());
        }
    });
    EXPECT_EQ(group.sendText(text), 2U);
    std::size_t taken = 2;
    for (int i = 0; i < 2; ++i) {
        taken = group.sendText(text);
    }
    EXPECT_EQ(taken, 1U);
    reader.join();
    bench.end();
}

TEST_F(WebSocketGroupTest, MessagesOfOneSenderArriveInOrderWhileOthersComeAndGo) {
    constexpr int Count = 500;
    group.add(peers[0].handle);
    std::atomic<bool> isDone{false};
    std::thread churn([&] {
        while (!isDone) {
            group.add(peers[1].handle);
            group.remove(peers[1].handle);
        }
    });
    std::thread sender([&] {
        for (int i = 0; i < Count; ++i) {
            group.sendText(std::to_string(i));
        }
    });
    for (int i = 0; i < Count; ++i) {
        expect(peers[0], std::to_string(i));
    }
    sender.join();
    isDone = true;
    churn.join();
}
