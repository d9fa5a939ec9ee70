#include "session/Codec.h"
#include "session/SessionBench.h"
#include "support/FailingAllocation.h"
#include "support/TestLog.h"
#include "vireo/WebSocketGroup.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

using namespace sessiontest;
using ql::http::WebSocketGroup;
using ql::http::WebSocketSend;
using ql::impl::SessionCore;
using ql::impl::SessionSettings;
using vireotest::allocationFailures;
using vireotest::failAllocation;
using vireotest::failAllocationOfOthers;
using vireotest::TestLog;

namespace {

/// Far more than any scenario here allocates.
constexpr std::size_t MostAllocations = 1000;

/// Runs `scenario` with the first allocation failing, then the second, and so on until none fails any more.
void failEach(const std::function<void(std::size_t)>& scenario) {
    for (std::size_t nth = 1; nth <= MostAllocations; ++nth) {
        SCOPED_TRACE("failure " + std::to_string(nth));
        const std::size_t before = allocationFailures;
        scenario(nth);
        failAllocation(0);
        failAllocationOfOthers(0);
        if (testing::Test::HasFailure() || allocationFailures == before) {
            EXPECT_GT(nth, 1U) << "nothing was tested";
            return;
        }
    }
    FAIL() << "the scenario never gets by";
}

} // namespace

TEST(SessionAllocation, MessageIsSentOrNot) {
    // The socket is full, so that every message has to be queued.
    const std::string filling(6000000, 'f');
    failEach([&](std::size_t nth) {
        SessionSettings settings;
        settings.maxQueuedBytes = 10000000;
        OpenPeer peer(settings);
        EXPECT_EQ(peer.handle.sendBinary(wstest::toBytes(filling)), WebSocketSend::Queued);
        const std::uint64_t before = peer.handle.queuedBytes();
        ASSERT_GT(before, 0U);
        bool isSent = false;
        failAllocation(nth);
        try {
            isSent = peer.handle.sendText("message") == WebSocketSend::Queued;
        } catch (const std::bad_alloc&) {
        }
        failAllocation(0);
        EXPECT_EQ(peer.receive().payload.size(), filling.size());
        if (isSent) {
            EXPECT_EQ(peer.receive(), (Frame{TextFrame, "message"}));
        }
        EXPECT_EQ(peer.handle.sendText("next"), WebSocketSend::Queued);
        EXPECT_EQ(peer.receive(), (Frame{TextFrame, "next"}));
    });
}

TEST(SessionAllocation, HalfSentMessageThatCannotBeKeptEndsTheConnection) {
    const wstest::Bytes large(20000000);
    SessionSettings settings;
    settings.maxQueuedBytes = 40000000;
    OpenPeer peer(settings);
    failAllocation(1);
    EXPECT_EQ(peer.handle.sendBinary(large), WebSocketSend::Closed);
    failAllocation(0);
    EXPECT_EQ(peer.record.waitForEnd().at(1), "close:1006::lost");
}

TEST(SessionAllocation, NothingRefersToAMessageThatWasNotSent) {
    const std::string lost = sessiontest::letters(1000, 1);
    failEach([&](std::size_t nth) {
        wstest::ScriptedSocket socket;
        ql::impl::SessionOutput output;
        SessionSettings settings;
        settings.compression.emplace();
        output.prepare(std::make_shared<SessionSettings>(settings), ql::impl::DeflateAgreement{});
        output.begin(77);
        output.open();
        socket.willRefuse(wstest::SocketError::WouldBlock);
        output.sendMessage(true, sessiontest::bytesOf("small"), ql::impl::Sender::Outsider);
        const std::uint64_t before = output.queuedBytes();
        failAllocation(nth);
        try {
            output.sendMessage(true, sessiontest::bytesOf(lost), ql::impl::Sender::Outsider);
        } catch (const std::bad_alloc&) {
        }
        failAllocation(0);
        const bool isSent = output.queuedBytes() > before;
        output.sendMessage(true, sessiontest::bytesOf(lost + lost), ql::impl::Sender::Outsider);
        output.flush();
        sessiontest::ClientInflater client;
        std::string last;
        int count = 0;
        for (std::size_t at = 0; at < socket.sent.size(); ++count) {
            const auto sizes = wstest::frameSizes(socket.sent, at).value();
            const auto begin = socket.sent.begin() + static_cast<std::ptrdiff_t>(at + sizes.header);
            const std::string payload(begin, begin + static_cast<std::ptrdiff_t>(sizes.payload));
            last = (socket.sent[at] & 0x40) != 0 ? client.inflate(payload).value_or("garbage") : payload;
            at += sizes.header + static_cast<std::size_t>(sizes.payload);
        }
        EXPECT_EQ(count, isSent ? 3 : 2);
        EXPECT_EQ(last, lost + lost);
    });
}

TEST(SessionAllocation, CloseIsSentOrNot) {
    failEach([](std::size_t nth) {
        OpenPeer peer;
        failAllocation(nth);
        try {
            peer.handle.close(1000, "bye");
        } catch (const std::bad_alloc&) {
        }
        failAllocation(0);
        peer.handle.close(1000, "bye");
        EXPECT_EQ(peer.receive(), (Frame{CloseFrame, closePayload(1000, "bye")}));
    });
}

TEST(SessionAllocation, PiecesAreWrittenOrNot) {
    const wstest::Bytes piece(6000000);
    failEach([&](std::size_t nth) {
        SessionSettings settings;
        settings.maxQueuedBytes = 10000000;
        OpenPeer peer(settings);
        ql::http::WebSocketWriter writer = peer.handle.beginBinary();
        EXPECT_EQ(writer.write(piece), WebSocketSend::Queued);
        peer.handle.sendText("held");
        WebSocketSend result = WebSocketSend::Full;
        failAllocation(nth);
        while (result == WebSocketSend::Full) {
            try {
                result = writer.finish();
            } catch (const std::bad_alloc&) {
            }
        }
        failAllocation(0);
        if (result == WebSocketSend::Closed) {
            // The message was finished, but not what waited for that.
            EXPECT_EQ(peer.record.waitForEnd().at(1), "close:1006::lost");
            return;
        }
        EXPECT_EQ(peer.receive().payload.size(), piece.size());
        EXPECT_EQ(peer.receive(), (Frame{0x80, ""}));
        EXPECT_EQ(peer.receive(), (Frame{TextFrame, "held"}));
    });
}

TEST(SessionAllocation, GroupLosesNobodyButWhoCouldNotCome) {
    TestLog log;
    failEach([](std::size_t nth) {
        OpenPeer peer;
        WebSocketGroup group;
        bool isIn = false;
        failAllocation(nth);
        try {
            isIn = group.add(peer.handle);
            group.sendText("hello");
        } catch (const std::bad_alloc&) {
        }
        failAllocation(0);
        EXPECT_EQ(group.size(), isIn ? 1U : 0U);
        EXPECT_EQ(group.add(peer.handle), !isIn);
    });
}

TEST(SessionAllocation, SessionThatCannotKeepWhatCameWithItsOpeningIsNeverOpened) {
    TestLog log;
    Record record;
    wstest::UpgradeHandle upgrade;
    SessionBench bench(1);
    auto session = std::make_unique<RecordingSession>(record);
    SessionCore::Of(*session).prepare(std::make_shared<SessionSettings>(patientSettings()), {});
    const Bytes extraBytes = wstest::clientFrame(TextFrame, wstest::toBytes("early"));
    failAllocation(1);
    const auto core =
        SessionCore::Begin({std::move(session), upgrade.sockets.server, &upgrade, ql::impl::InvalidSocket, extraBytes});
    failAllocation(0);
    ASSERT_TRUE(bench.roster.add(core));
    ASSERT_TRUE(bench.pool.add(core));
    EXPECT_EQ(record.waitForEnd(), std::vector<std::string>{"gone"});
    bench.end();
    EXPECT_EQ(upgrade.closes.count(), 1U);
    EXPECT_EQ(log.texts(qlLogType::Failure, "a session of a WebSocket").size(), 1U);
}

TEST(SessionAllocation, PreparingFailsWhole) {
    failEach([](std::size_t nth) {
        Peer peer;
        failAllocation(nth);
        try {
            const ql::http::WebSocketHandle handle = peer.session().getHandle();
            ql::impl::SessionCore::Of(peer.session()).prepare(std::make_shared<SessionSettings>(), {});
        } catch (const std::bad_alloc&) {
        }
        failAllocation(0);
        EXPECT_EQ(peer.session().getHandle().sendText("x"), WebSocketSend::Closed);
    });
}

/// Whatever fails in the pool's thread: the session is told of its end once, the connection is closed once, and others
/// are served.
TEST(SessionAllocation, TurnThatFailsEndsItsSessionOnly) {
    TestLog log;
    const std::string half(70000, 'x');
    failEach([&](std::size_t nth) {
        Peer healthy;
        Peer peer;
        peer.session().atText = [](RecordingSession& session, std::string_view text) {
            failAllocationOfOthers(0);
            session.sendText(text.substr(0, 10));
        };
        SessionBench bench(1);
        bench.open(healthy);
        bench.open(peer);
        const wstest::Bytes frames = wstest::concatenate({wstest::clientFrame(0x01, wstest::toBytes(half)),
                                                          wstest::clientFrame(PingFrame, wstest::toBytes("ping")),
                                                          wstest::clientFrame(0x80, wstest::toBytes(half))});
        failAllocationOfOthers(nth);
        peer.sendRaw(frames);
        const Frame first = peer.receive();
        failAllocationOfOthers(0);
        if (first.firstByte == CloseFrame) {
            EXPECT_EQ(first.payload, closePayload(1011));
        }
        healthy.send(PingFrame, "still here");
        EXPECT_EQ(healthy.receive(), (Frame{PongFrame, "still here"}));
        bench.end();
        EXPECT_EQ(peer.upgrade.closes.count(), 1U);
        const auto events = peer.record.events();
        EXPECT_EQ(events.back(), "gone");
        EXPECT_EQ(events.at(events.size() - 2).substr(0, 6), "close:");
    });
}
