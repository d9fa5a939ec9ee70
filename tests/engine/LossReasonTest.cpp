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

TEST(LossReason, EachIsAnEndingToo) {
    using Ending = ql::http::ExchangeRecord::Ending;
    const auto endingOf = [](int code) { return ql::impl::endingOf(static_cast<MHD_RequestTerminationCode>(code)); };
    EXPECT_EQ(endingOf(0), Ending::Completed);
    EXPECT_EQ(endingOf(1), Ending::WriteError);
    EXPECT_EQ(endingOf(2), Ending::IdleTimeout);
    EXPECT_EQ(endingOf(3), Ending::ServerStopped);
    EXPECT_EQ(endingOf(4), Ending::ReadError);
    EXPECT_EQ(endingOf(5), Ending::ClientLeft);
    EXPECT_EQ(endingOf(6), Ending::Completed) << "as it is no loss";
}

} // namespace
