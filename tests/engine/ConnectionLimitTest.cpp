#include "engine/ConnectionLimit.h"

#include <gtest/gtest.h>

namespace {

using ql::impl::connectionLimit;

TEST(ConnectionLimit, AllowsManyConnections) {
    EXPECT_GT(connectionLimit(), 100U);
    EXPECT_LE(connectionLimit(), 1000000U);
}

} // namespace
