#include "app/testing/FrameText.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace vireo::impl {
namespace {

TEST(FrameText, SendsWithAMask) {
    const std::string bytes = FrameText{FrameText::Kind::Text, true, "hello"}.toBytes();
    ASSERT_EQ(bytes.size(), 2U + 4U + 5U);
    EXPECT_EQ(bytes.substr(0, 2), "\x81\x85");
    std::string payload = bytes.substr(6);
    for (std::size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<char>(payload[i] ^ bytes[2 + i % 4]);
    }
    EXPECT_EQ(payload, "hello");
}

TEST(FrameText, WritesLengthsOfEachSize) {
    const auto begin = [](std::size_t length) {
        return FrameText{FrameText::Kind::Binary, true, std::string(length, 'x')}.toBytes().substr(1, 9);
    };
    EXPECT_EQ(begin(125)[0], '\xfd');
    EXPECT_EQ(begin(126).substr(0, 3), std::string("\xfe\x00\x7e", 3));
    EXPECT_EQ(begin(65535).substr(0, 3), "\xfe\xff\xff");
    EXPECT_EQ(begin(65536), std::string("\xff\x00\x00\x00\x00\x00\x01\x00\x00", 9));
}

TEST(FrameText, TakesFramesInAnyPieces) {
    for (const std::size_t length : {std::size_t{0}, std::size_t{125}, std::size_t{126}, std::size_t{70000}}) {
        std::string frame = "\x82";
        if (length < 126) {
            frame += static_cast<char>(length);
        } else if (length < 65536) {
            frame += {'\x7e', static_cast<char>(length >> 8U), static_cast<char>(length & 0xffU)};
        } else {
            frame += std::string("\x7f\0\0\0\0\0\x01\x11\x70", 9);
        }
        frame += std::string(length, 'x');
        std::string bytes = frame.substr(0, frame.size() - 1);
        EXPECT_FALSE(FrameText::Take(bytes));
        bytes += frame.back();
        bytes += "\x8a";
        const auto taken = FrameText::Take(bytes);
        ASSERT_TRUE(taken) << length;
        EXPECT_EQ(taken->kind, FrameText::Kind::Binary);
        EXPECT_EQ(taken->payload.size(), length);
        EXPECT_EQ(bytes, "\x8a");
    }
}

TEST(FrameText, RefusesWhatNoServerMaySend) {
    for (std::string bytes : {std::string("\x81\x80\0\0\0\0", 6), std::string("\xc1\x00", 2)}) {
        EXPECT_THROW(FrameText::Take(bytes), std::runtime_error);
    }
}

} // namespace
} // namespace vireo::impl
