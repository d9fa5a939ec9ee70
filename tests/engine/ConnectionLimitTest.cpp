#include "engine/ConnectionLimit.h"

#include <gtest/gtest.h>

namespace {

using ql::impl::connectionLimit;

TEST(ConnectionLimit, AllowsMoreThanOneConnection) {
    EXPECT_GT(connectionLimit(1), 1U);
}

TEST(ConnectionLimit, LeavesEachThreadAConnection) {
    EXPECT_EQ(connectionLimit(3000000), 3000000U);
}

} // namespace
