#include "server/Admissions.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

using ql::impl::Admissions;

constexpr std::uint32_t One = 1;
constexpr std::uint32_t Other = 2;

TEST(Admissions, GoToTheEngineWithTheFewest) {
    Admissions admissions({}, 3);
    EXPECT_EQ(admissions.admit(10, One), 0U);
    EXPECT_EQ(admissions.admit(12, One), 1U);
    EXPECT_EQ(admissions.admit(14, One), 2U);
    admissions.leave(12);
    EXPECT_EQ(admissions.admit(16, One), 1U);
    EXPECT_EQ(admissions.admit(18, One), 0U);
}

TEST(Admissions, EndAtTheLimitUntilOneLeaves) {
    Admissions admissions({.connections = 2}, 1);
    EXPECT_TRUE(admissions.admit(1, One));
    EXPECT_TRUE(admissions.admit(2, Other));
    EXPECT_FALSE(admissions.admit(3, Other));
    admissions.leave(3);
    EXPECT_FALSE(admissions.admit(3, Other)) << "who was not let in leaves nothing";
    admissions.leave(1);
    EXPECT_TRUE(admissions.admit(3, Other));
}

TEST(Admissions, EndAtTheLimitOfAnAddressUntilOneFromThereLeaves) {
    Admissions admissions({.perAddress = 1}, 1);
    EXPECT_TRUE(admissions.admit(1, One));
    EXPECT_FALSE(admissions.admit(2, One));
    EXPECT_TRUE(admissions.admit(2, Other));
    admissions.leave(1);
    EXPECT_TRUE(admissions.admit(1, One));
}

TEST(Admissions, CountWhoHasNotBegunAndWhoIsAWebSocket) {
    Admissions admissions({}, 1);
    admissions.admit(1, One);
    admissions.admit(2, One);
    EXPECT_EQ(admissions.counts().waiting, 2U);
    admissions.begin(1);
    admissions.begin(2);
    EXPECT_EQ(admissions.counts().waiting, 0U);
    admissions.upgrade(2);
    EXPECT_EQ(admissions.counts().upgraded, 1U);
    admissions.leave(1);
    EXPECT_EQ(admissions.counts().upgradesEnded, 0U);
    admissions.leave(2);
    EXPECT_EQ(admissions.counts().upgraded, 0U);
    EXPECT_EQ(admissions.counts().upgradesEnded, 1U);
}

TEST(Admissions, ForgetWhoIsGoneWithoutAWordWhenTheNumberComesAgain) {
    Admissions admissions({.connections = 1}, 1);
    EXPECT_TRUE(admissions.admit(1, One));
    EXPECT_TRUE(admissions.admit(1, Other));
    EXPECT_EQ(admissions.counts().waiting, 1U);
    admissions.leave(1);
    EXPECT_EQ(admissions.counts().waiting, 0U);
    EXPECT_TRUE(admissions.admit(2, One));
}

} // namespace
