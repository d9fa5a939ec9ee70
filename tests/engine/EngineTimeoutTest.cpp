#include "engine/EngineTimeout.h"

#include <gtest/gtest.h>

namespace {

using ql::impl::timeoutSeconds;

TEST(EngineTimeout, NoneStaysNone) {
    EXPECT_EQ(timeoutSeconds(0), 0U);
}

TEST(EngineTimeout, PartOfASecondIsASecond) {
    EXPECT_EQ(timeoutSeconds(1), 1U);
    EXPECT_EQ(timeoutSeconds(999), 1U);
    EXPECT_EQ(timeoutSeconds(1000), 1U);
    EXPECT_EQ(timeoutSeconds(1001), 2U);
    EXPECT_EQ(timeoutSeconds(1999), 2U);
    EXPECT_EQ(timeoutSeconds(2000), 2U);
}

TEST(EngineTimeout, DefaultIs360Seconds) {
    EXPECT_EQ(timeoutSeconds(359999), 360U);
    EXPECT_EQ(timeoutSeconds(360000), 360U);
    EXPECT_EQ(timeoutSeconds(360001), 361U);
}

TEST(EngineTimeout, SinglePrecisionDecidesBeyond24Bits) {
    EXPECT_EQ(timeoutSeconds(16777000), 16777U);
    EXPECT_EQ(timeoutSeconds(16777001), 16778U);
    EXPECT_EQ(timeoutSeconds(100000001), 100000U) << "100000001 is 100000000 in single precision";
    EXPECT_EQ(timeoutSeconds(4294967295U), 4294968U);
}

} // namespace
