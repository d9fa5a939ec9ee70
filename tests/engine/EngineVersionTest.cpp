#include "engine/EngineVersion.h"

#include <gtest/gtest.h>

#include <microhttpd.h>

namespace {

TEST(EngineVersion, IsThatOfTheEngineThatRuns) {
    EXPECT_STREQ(ql::impl::engineVersion(), MHD_get_version());
}

} // namespace
