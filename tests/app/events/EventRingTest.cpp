#include "app/events/EventRing.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

using vireo::impl::EventRing;
using vireo::impl::EventText;
using vireo::impl::framed;

namespace {

EventRing::Bytes bytes(std::size_t count) {
    return std::make_shared<const std::string>(count, 'x');
}

/// Ids from 1 on.
void add(EventRing& ring, int count, std::size_t size, bool hasListeners) {
    for (int i = 0; i < count; ++i) {
        ring.add(std::to_string(ring.end()), bytes(size), hasListeners);
    }
}

} // namespace

TEST(EventRing, KeepsSoManyEventsForReplay) {
    EventRing ring({3, 1000, 1000});
    add(ring, 5, 10, false);
    EXPECT_EQ(ring.begin(), 3);
    EXPECT_EQ(ring.end(), 6);
    add(ring, 1, 10, false);
    EXPECT_EQ(ring.begin(), 4);
}

TEST(EventRing, KeepsSoManyBytesForReplay) {
    EventRing ring({100, 40, 1000});
    add(ring, 4, 10, false);
    EXPECT_EQ(ring.begin(), 1);
    add(ring, 1, 10, false);
    EXPECT_EQ(ring.begin(), 2);
    add(ring, 1, 41, false);
    EXPECT_EQ(ring.begin(), ring.end()) << "one that is larger than the replay";
}

TEST(EventRing, KeepsWhatListenersMayBeBehind) {
    EventRing ring({2, 20, 100});
    add(ring, 10, 10, true);
    EXPECT_EQ(ring.begin(), 1);
    add(ring, 1, 10, true);
    EXPECT_EQ(ring.begin(), 2);
    ring.trimToReplay();
    EXPECT_EQ(ring.begin(), 10);
}

TEST(EventRing, KeepsReplayWhereListenersMayBeLessBehind) {
    EventRing ring({100, 100, 10});
    add(ring, 10, 10, true);
    EXPECT_EQ(ring.begin(), 1);
    EXPECT_EQ(ring.maxEventBytes(), 100);
}

TEST(EventRing, ContinuesBehindAKnownEvent) {
    EventRing ring({4, 1000, 1000});
    add(ring, 10, 10, true);
    EXPECT_EQ(ring.cursorBehind("9"), 10);
    EXPECT_EQ(ring.cursorBehind("10"), ring.end());
    EXPECT_EQ(ring.cursorBehind("2"), 3) << "not kept for replay, but here";
}

TEST(EventRing, ReplaysAllThatIsKeptBehindAnUnknownEvent) {
    EventRing ring({4, 1000, 1000});
    add(ring, 10, 10, true);
    EXPECT_EQ(ring.cursorBehind("11"), 7);
    EXPECT_EQ(ring.cursorBehind("before the restart"), 7);
}

TEST(EventRing, TakesTheLastOfEqualIds) {
    EventRing ring({10, 1000, 1000});
    for (int i = 0; i < 3; ++i) {
        ring.add("same", bytes(1), false);
    }
    EXPECT_EQ(ring.cursorBehind("same"), 4);
}

TEST(EventRing, ReadsWholeEventsUpToABound) {
    EventRing ring({100, 1000, 1000});
    add(ring, 5, 10, false);
    const EventRing::Batch batch = ring.read(2, 30);
    EXPECT_EQ(batch.events.size(), 3);
    EXPECT_EQ(batch.end, 5);
    EXPECT_EQ(ring.read(2, 39).end, 5);
    EXPECT_EQ(ring.read(5, 30).end, 6);
    EXPECT_EQ(ring.read(6, 30).events.size(), 0);
}

TEST(EventRing, ReadsOneThatIsLargerThanTheBound) {
    EventRing ring({100, 1000, 1000});
    add(ring, 1, 10, false);
    add(ring, 1, 500, false);
    EXPECT_EQ(ring.read(1, 100).end, 2);
    const EventRing::Batch batch = ring.read(2, 100);
    ASSERT_EQ(batch.events.size(), 1);
    EXPECT_EQ(batch.events[0]->size(), 500);
}

TEST(FramedEvent, HasALineForEachThatTheTextHas) {
    EXPECT_EQ(framed({"hello", "", "1", {}}), "id: 1\ndata: hello\n\n");
    EXPECT_EQ(framed({"a\nb\r\nc\rd", "", "1", {}}), "id: 1\ndata: a\ndata: b\ndata: c\ndata: d\n\n");
    EXPECT_EQ(framed({"", "", "1", {}}), "id: 1\ndata: \n\n");
    EXPECT_EQ(framed({"a\n", "", "1", {}}), "id: 1\ndata: a\ndata: \n\n");
    EXPECT_EQ(framed({"\r\n\n", "", "1", {}}), "id: 1\ndata: \ndata: \ndata: \n\n");
    EXPECT_EQ(framed({"\r\r\n", "", "1", {}}), "id: 1\ndata: \ndata: \ndata: \n\n");
}

TEST(FramedEvent, NamesItsKindAndTheWait) {
    EXPECT_EQ(framed({"21.5", "temperature", "a b", 3000}), "id: a b\nevent: temperature\nretry: 3000\ndata: 21.5\n\n");
}

TEST(FramedEvent, RefusesWhatWouldBeALineOfItsOwn) {
    using namespace std::string_view_literals;
    for (const std::string_view bad : {"a\nb"sv, "a\rb"sv, "\n"sv}) {
        EXPECT_THROW(framed({"", bad, "1", {}}), std::invalid_argument);
        EXPECT_THROW(framed({"", "", bad, {}}), std::invalid_argument);
    }
    EXPECT_THROW(framed({"", "", "a\0b"sv, {}}), std::invalid_argument) << "which clients ignore";
    EXPECT_THROW(framed({"", "", "1", -1}), std::invalid_argument);
}
