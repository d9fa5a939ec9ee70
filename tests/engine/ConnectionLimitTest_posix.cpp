#include "engine/ConnectionLimit.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

namespace {

using ql::impl::connectionLimit;

TEST(ConnectionLimit, LeavesAnEighthOfTheDescriptors) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit fewer = before;
    fewer.rlim_cur = 800;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &fewer), 0);
    EXPECT_EQ(connectionLimit(), 700U);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

} // namespace
