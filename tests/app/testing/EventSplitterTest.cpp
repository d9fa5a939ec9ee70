#include "app/testing/EventSplitter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vireo::impl {
namespace {

TEST(EventSplitter, TakesEventsApartInAnyPieces) {
    const std::string stream = ": beat\r\n\r\nretry: 5\nid: 7\nevent:  note\ndata: one\rdata:two\r\ndata\n\n"
                               "data: plain\n\nevent: dropped\n\ndata: not whole\n";
    for (std::size_t size = 1; size <= stream.size(); ++size) {
        EventSplitter events;
        for (std::size_t i = 0; i < stream.size(); i += size) {
            events.feed(std::string_view(stream).substr(i, size));
        }
        const auto first = events.take();
        ASSERT_TRUE(first) << size;
        EXPECT_EQ(first->data, "one\ntwo\n");
        EXPECT_EQ(first->type, " note");
        EXPECT_EQ(first->id, "7");
        const auto second = events.take();
        ASSERT_TRUE(second) << size;
        EXPECT_EQ(second->data, "plain");
        EXPECT_EQ(second->type, "message");
        EXPECT_EQ(second->id, "7");
        EXPECT_FALSE(events.take()) << size;
    }
}

TEST(EventSplitter, MarkOfTheByteOrderSaysNothingAtTheBegin) {
    EventSplitter events;
    events.feed("\xEF\xBB\xBF"
                "data: one\n\n\xEF\xBB\xBF"
                "data: no field\ndata: two\n\n");
    EXPECT_EQ(events.take()->data, "one");
    EXPECT_EQ(events.take()->data, "two");
}

} // namespace
} // namespace vireo::impl
