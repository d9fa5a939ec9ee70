#include "streams/DaemonCall.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using ql::impl::DaemonCall;

TEST(DaemonCall, MarksItsThreadWhileItLives) {
    EXPECT_FALSE(DaemonCall::isUnderWay());
    {
        const DaemonCall call;
        EXPECT_TRUE(DaemonCall::isUnderWay());
    }
    EXPECT_FALSE(DaemonCall::isUnderWay());
}

TEST(DaemonCall, InnerOneLeavesTheMarkOfTheOuter) {
    const DaemonCall outer;
    { const DaemonCall inner; }
    EXPECT_TRUE(DaemonCall::isUnderWay());
}

TEST(DaemonCall, MarksNoOtherThread) {
    const DaemonCall call;
    bool isMarked = true;
    std::thread([&isMarked] { isMarked = DaemonCall::isUnderWay(); }).join();
    EXPECT_FALSE(isMarked);
}

} // namespace
