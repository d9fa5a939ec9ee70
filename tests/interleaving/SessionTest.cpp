#include "session/SessionBench.h"

#include "interleaving/Explore.h"
#include "vireo/WebSocketGroup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using ql::http::WebSocketGroup;
using ql::http::WebSocketSend;
using sessiontest::Frame;
using sessiontest::Peer;
using sessiontest::RecordingSession;
using sessiontest::SessionBench;
using sessiontest::TextFrame;
using testing::ElementsAre;
using testing::StartsWith;
using vireotest::exploreAll;
using vireotest::exploreRandomly;

/// The session of a peer was told of its begin and of one end, and has gone.
void expectOneEnd(const Peer& peer) {
    EXPECT_THAT(peer.record.events(), ElementsAre("open", StartsWith("close:"), "gone"));
}

/// One member of a room is closed while others get what is sent to all.
void closeBesideBroadcast(unsigned threads, int messages) {
    SessionBench bench(threads);
    Peer leaves;
    Peer stays;
    bench.open(leaves);
    bench.open(stays);
    WebSocketGroup room;
    EXPECT_TRUE(room.add(leaves.handle));
    EXPECT_TRUE(room.add(stays.handle));
    std::thread sender([&] {
        for (int i = 0; i < messages; ++i) {
            EXPECT_GE(room.sendText(std::to_string(i)), 1U);
        }
    });
    std::thread closer([&] { leaves.handle.close(1000, "bye"); });
    for (int i = 0; i < messages; ++i) {
        EXPECT_EQ(stays.receive(), (Frame{TextFrame, std::to_string(i)}));
    }
    sender.join();
    closer.join();
    EXPECT_EQ(room.size(), 1U);
    bench.end();
    EXPECT_EQ(room.size(), 0U);
    expectOneEnd(leaves);
    expectOneEnd(stays);
    vireotest::expectNoTimeHasPassed();
}

TEST(SessionInterleavingTest, WhoStaysGetsEachMessageInItsOrder) {
    ASSERT_GT(exploreAll([] { closeBesideBroadcast(1, 1); }, 1), 100U);
    exploreRandomly([] { closeBesideBroadcast(2, 3); }, 300);
}

/// A peer leaves, the application closes and the server ends all of them at once.
void endInThreeWays() {
    SessionBench bench(2);
    Peer peer;
    bench.open(peer);
    std::thread application([&] { peer.handle.close(1000, "bye"); });
    std::thread client([&] { peer.sendRaw(wstest::clientFrame(sessiontest::CloseFrame, {})); });
    bench.end();
    application.join();
    client.join();
    expectOneEnd(peer);
    vireotest::expectNoTimeHasPassed();
}

TEST(SessionInterleavingTest, SessionEndsOnce) {
    ASSERT_GT(exploreAll(endInThreeWays, 0), 100U);
    exploreRandomly(endInThreeWays, 500);
}

/// What the session answers and what another thread sends, while the session is served, comes to its turn or not.
void sendBesideAnswers(int messages) {
    SessionBench bench(2);
    Peer peer;
    peer.session().atText = [](RecordingSession& session, std::string_view text) {
        EXPECT_EQ(session.getHandle().sendText(text), WebSocketSend::Queued);
    };
    bench.open(peer);
    std::thread sender([&] {
        for (int i = 0; i < messages; ++i) {
            EXPECT_EQ(peer.handle.sendText("sent"), WebSocketSend::Queued);
        }
    });
    for (int i = 0; i < messages; ++i) {
        peer.send(TextFrame, "answered");
    }
    int answered = 0;
    for (int i = 0; i < 2 * messages; ++i) {
        const Frame frame = peer.receive();
        EXPECT_TRUE(frame.payload == "answered" || frame.payload == "sent");
        answered += frame.payload == "answered" ? 1 : 0;
    }
    EXPECT_EQ(answered, messages);
    sender.join();
    bench.end();
    vireotest::expectNoTimeHasPassed();
}

TEST(SessionInterleavingTest, WhatIsSentBesideATurnIsNotLeftBehind) {
    ASSERT_GT(exploreAll([] { sendBesideAnswers(1); }, 1), 100U);
    exploreRandomly([] { sendBesideAnswers(3); }, 300);
}

/// More than the system keeps for a connection.
constexpr std::size_t LargeBytes = 7000000;

/// Who waits for room goes on when the peer reads, and when the session ends.
void writeTooMuch(bool isCut) {
    SessionBench bench(1);
    Peer peer;
    ql::impl::SessionSettings settings = sessiontest::patientSettings();
    settings.maxQueuedBytes = LargeBytes;
    settings.queuePolicy = ql::http::WebSocketOptions::QueuePolicy::Wait;
    bench.open(peer, settings);
    const std::string large(LargeBytes, 'x');
    std::thread writer([&] {
        WebSocketSend result = WebSocketSend::Queued;
        for (int i = 0; i < 3 && result == WebSocketSend::Queued; ++i) {
            result = peer.handle.sendText(large);
        }
        EXPECT_EQ(result, isCut ? WebSocketSend::Closed : WebSocketSend::Queued);
    });
    if (isCut) {
        bench.end();
    } else {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(peer.receive().payload.size(), large.size());
        }
    }
    writer.join();
    bench.end();
    vireotest::expectNoTimeHasPassed();
}

TEST(SessionInterleavingTest, WhoWaitsForRoomGoesOnWhenThePeerReads) {
    exploreRandomly([] { writeTooMuch(false); }, 20);
}

TEST(SessionInterleavingTest, WhoWaitsForRoomIsLetGoAtTheEnd) {
    exploreRandomly([] { writeTooMuch(true); }, 20);
}

} // namespace
