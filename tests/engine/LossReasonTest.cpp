#include "engine/LossReason.h"

#include <gtest/gtest.h>

namespace {

const char* reasonOf(int code) {
    return ql::impl::lossReason(static_cast<MHD_RequestTerminationCode>(code));
}

TEST(LossReason, NamesEachWayToBreakOff) {
    EXPECT_STREQ(reasonOf(1), "WriteError");
    EXPECT_STREQ(reasonOf(2), "TimeoutReached");
    EXPECT_STREQ(reasonOf(3), "DaemonShutdown");
    EXPECT_STREQ(reasonOf(4), "ReadError");
    EXPECT_STREQ(reasonOf(5), "ClientAbort");
}

TEST(LossReason, NormalEndHasNone) {
    EXPECT_EQ(reasonOf(0), nullptr);
}

TEST(LossReason, UnknownCodeHasNone) {
    EXPECT_EQ(reasonOf(6), nullptr);
    EXPECT_EQ(reasonOf(7), nullptr);
}

} // namespace
