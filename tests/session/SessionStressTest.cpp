#include "session/SessionBench.h"
#include "support/WaitUntil.h"
#include "vireo/WebSocketGroup.h"
#include "vireo/WebSocketMessage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace sessiontest;
using ql::http::WebSocketGroup;
using ql::http::WebSocketHandle;
using ql::http::WebSocketMessage;
using ql::http::WebSocketOptions;
using ql::http::WebSocketWriter;
using ql::impl::SessionSettings;

namespace {

/// The handles of sessions that are there, or were.
class Handles {
public:
    void put(std::size_t index, const WebSocketHandle& handle) {
        const std::lock_guard lock(mutex_);
        handles_[index % handles_.size()] = handle;
    }
    WebSocketHandle get(std::size_t index) const {
        const std::lock_guard lock(mutex_);
        return handles_[index % handles_.size()];
    }

private:
    mutable std::mutex mutex_;
    std::array<WebSocketHandle, 16> handles_;
};

/// What the application's threads do to connections that come and go.
void disturb(unsigned seed, const Handles& handles, WebSocketGroup& group, const std::atomic<bool>& isDone) {
    std::mt19937 random(seed);
    const WebSocketMessage shared = WebSocketMessage::Text(std::string(1000, 's'));
    while (!isDone) {
        const WebSocketHandle handle = handles.get(random());
        switch (random() % 12) {
        case 0:
            handle.close(3000, "disturbed");
            break;
        case 1:
            group.add(handle);
            break;
        case 2:
            group.remove(handle);
            break;
        case 3:
            group.sendText("to all", handle);
            break;
        case 4: {
            WebSocketWriter writer = handle.beginText();
            writer.write("piece");
            if (random() % 8 != 0) {
                writer.finish();
            }
            break;
        }
        case 5:
            handle.ping("ping");
            break;
        case 6:
            handle.send(shared);
            break;
        case 7:
            handle.sendBinary(wstest::Bytes(50000));
            break;
        default:
            handle.sendText("disturbance");
            break;
        }
        handle.queuedBytes();
        group.size();
    }
}

/// One peer after another: each sends, reads for a while or not at all, and ends in one of many ways.
void visit(unsigned seed, SessionBench& bench, Handles& handles, WebSocketGroup& group, std::size_t visits) {
    std::mt19937 random(seed);
    for (std::size_t i = 0; i < visits; ++i) {
        Peer peer;
        SessionSettings settings;
        settings.queuePolicy = static_cast<WebSocketOptions::QueuePolicy>(random() % 3);
        settings.maxQueuedBytes = 200000;
        settings.closeTimeoutMs = 30;
        settings.pingIntervalMs = 20;
        settings.pongTimeoutMs = 20;
        settings.inPieces = random() % 4 == 0;
        peer.session().atOpen = [&group](RecordingSession& session) { group.add(session.getHandle()); };
        peer.session().atText = [&group](RecordingSession& session, std::string_view text) {
            session.sendText(text);
            group.sendText(text, session.getHandle());
        };
        bench.start(peer, settings);
        handles.put(random(), peer.handle);
        for (std::uint_fast32_t sent = random() % 20; sent > 0; --sent) {
            if (!peer.send(random() % 5 == 0 ? PingFrame : TextFrame, std::string(random() % 120, 'v'))) {
                break;
            }
        }
        for (std::uint_fast32_t read = random() % 10; read > 0; --read) {
            if (wstest::receiveFrame(peer.upgrade.sockets.client).empty()) {
                break;
            }
        }
        switch (random() % 5) {
        case 0:
            peer.send(CloseFrame, closePayload(1000));
            break;
        case 1:
            peer.upgrade.sockets.resetClient();
            break;
        case 2:
            peer.send(0x83, "against the rules");
            break;
        case 3:
            peer.handle.close();
            break;
        default:
            peer.upgrade.sockets.closeClient();
            break;
        }
        ASSERT_TRUE(peer.upgrade.closes.waitFor(1));
        const std::vector<std::string> events = peer.record.waitForEnd();
        EXPECT_EQ(events.front(), "open");
        EXPECT_EQ(events.at(events.size() - 2).substr(0, 6), "close:");
        EXPECT_EQ(std::ranges::count_if(events, [](const std::string& event) { return event.starts_with("close:"); }),
                  1);
        EXPECT_EQ(peer.upgrade.closes.count(), 1U);
        EXPECT_FALSE(peer.handle.isOpen());
    }
}

} // namespace

TEST(SessionStress, ComingAndGoingUnderFire) {
    Handles handles;
    WebSocketGroup group;
    SessionBench bench(3);
    std::atomic<bool> isDone{false};
    std::vector<std::thread> disturbers;
    for (unsigned i = 0; i < 3; ++i) {
        disturbers.emplace_back([&, i] { disturb(i, handles, group, isDone); });
    }
    std::vector<std::thread> visitors;
    for (unsigned i = 0; i < 4; ++i) {
        visitors.emplace_back([&, i] { visit(100 + i, bench, handles, group, 60); });
    }
    for (std::thread& visitor : visitors) {
        visitor.join();
    }
    isDone = true;
    for (std::thread& disturber : disturbers) {
        disturber.join();
    }
    // A session leaves it after its connection was closed.
    EXPECT_TRUE(vireotest::waitUntil([&] { return bench.roster.isEmpty(); }));
    EXPECT_EQ(group.size(), 0U);
}

TEST(SessionStress, CutUnderFire) {
    for (unsigned round = 0; round < 20; ++round) {
        std::array<Peer, 12> peers;
        Handles handles;
        WebSocketGroup group;
        SessionBench bench(2);
        std::atomic<bool> isDone{false};
        std::thread disturber([&] { disturb(round, handles, group, isDone); });
        for (std::size_t i = 0; i < peers.size(); ++i) {
            peers[i].session().atText = [](RecordingSession& session, std::string_view text) {
                session.sendText(text);
            };
            SessionSettings settings;
            settings.queuePolicy = static_cast<WebSocketOptions::QueuePolicy>(i % 3);
            settings.maxQueuedBytes = 100000;
            bench.start(peers[i], settings, {}, wstest::clientFrame(TextFrame, wstest::toBytes("early")));
            handles.put(i, peers[i].handle);
        }
        if (round % 2 == 0) {
            bench.roster.goodbye();
        }
        bench.end();
        isDone = true;
        disturber.join();
        for (Peer& peer : peers) {
            EXPECT_EQ(peer.record.events().back(), "gone");
            EXPECT_EQ(peer.upgrade.closes.count(), 1U);
        }
    }
}
