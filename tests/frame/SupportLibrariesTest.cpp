#include "vireo/support/SupportLibraries.h"

#include <gtest/gtest.h>

namespace {

TEST(SupportLibraries, TanagerCountsItsUsers) {
    ASSERT_FALSE(ql::isTanagerInitialized());
    ql::initializeTanager("");
    ql::initializeTanager("");
    ql::terminateTanager();
    EXPECT_TRUE(ql::isTanagerInitialized());
    ql::terminateTanager();
    EXPECT_FALSE(ql::isTanagerInitialized());
}

TEST(SupportLibraries, TanagerTerminatedTooOftenStaysUninitialized) {
    ql::terminateTanager();
    EXPECT_FALSE(ql::isTanagerInitialized());
    ql::initializeTanager("");
    EXPECT_TRUE(ql::isTanagerInitialized());
    ql::terminateTanager();
}

TEST(SupportLibraries, PipitCountsItsUsers) {
    ASSERT_FALSE(ql::json::isQlPipitInitialized());
    ql::json::initializeQlPipit();
    ql::json::initializeQlPipit();
    ql::json::terminateQlPipit();
    EXPECT_TRUE(ql::json::isQlPipitInitialized());
    ql::json::terminateQlPipit();
    EXPECT_FALSE(ql::json::isQlPipitInitialized());
}

TEST(SupportLibraries, PipitTerminatedTooOftenStaysUninitialized) {
    ql::json::terminateQlPipit();
    EXPECT_FALSE(ql::json::isQlPipitInitialized());
    ql::json::initializeQlPipit();
    EXPECT_TRUE(ql::json::isQlPipitInitialized());
    ql::json::terminateQlPipit();
}

TEST(SupportLibraries, TheComponentsAreIndependent) {
    ql::initializeTanager("");
    EXPECT_FALSE(ql::json::isQlPipitInitialized());
    ql::terminateTanager();
    ql::json::initializeQlPipit();
    EXPECT_FALSE(ql::isTanagerInitialized());
    ql::json::terminateQlPipit();
}

} // namespace
