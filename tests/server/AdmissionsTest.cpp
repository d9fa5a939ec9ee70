#include "server/Admissions.h"

#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <future>
#include <optional>

namespace {

using ql::impl::Admissions;

constexpr std::uint64_t One = 1;
constexpr std::uint64_t Other = 2;

std::optional<std::size_t> admit(Admissions& admissions, std::uint64_t socket, std::optional<std::uint64_t> address,
                                 const Admissions::Engines& engines = {0, 1}) {
    return admissions.admit({socket, address, 0}, engines);
}

TEST(Admissions, GoToTheEngineWithTheFewest) {
    Admissions admissions({}, 3);
    EXPECT_EQ(admit(admissions, 10, One, {0, 3}), 0U);
    EXPECT_EQ(admit(admissions, 12, One, {0, 3}), 1U);
    EXPECT_EQ(admit(admissions, 14, One, {0, 3}), 2U);
    admissions.leave(12);
    EXPECT_EQ(admit(admissions, 16, One, {0, 3}), 1U);
    EXPECT_EQ(admit(admissions, 18, One, {0, 3}), 0U);
}

TEST(Admissions, GoToTheEnginesThatMayHaveThem) {
    Admissions admissions({}, 3);
    EXPECT_EQ(admit(admissions, 10, One, {1, 2}), 1U);
    EXPECT_EQ(admit(admissions, 12, One, {1, 2}), 2U);
    EXPECT_EQ(admit(admissions, 14, One, {0, 1}), 0U);
    EXPECT_EQ(admit(admissions, 16, One, {0, 1}), 0U);
    EXPECT_EQ(admit(admissions, 17, One, {0, 1}), 0U);
    EXPECT_EQ(admit(admissions, 18, One, {1, 2}), 1U);
}

TEST(Admissions, RememberTheListener) {
    Admissions admissions({}, 1);
    admissions.admit({1, One, 2}, {0, 1});
    admissions.admit({2, One, 0}, {0, 1});
    EXPECT_EQ(admissions.begin(1), 2U);
    EXPECT_EQ(admissions.begin(2), 0U);
    EXPECT_EQ(admissions.begin(3), std::nullopt) << "who was not let in has none";
}

TEST(Admissions, WithoutAnAddressHaveNoLimitOfTheirOwn) {
    Admissions admissions({.connections = 3, .perAddress = 1}, 1);
    EXPECT_TRUE(admit(admissions, 1, std::nullopt));
    EXPECT_TRUE(admit(admissions, 2, std::nullopt));
    EXPECT_TRUE(admit(admissions, 3, One));
    EXPECT_FALSE(admit(admissions, 4, std::nullopt)) << "the limit for all holds for them";
}

TEST(Admissions, EndAtTheLimitUntilOneLeaves) {
    Admissions admissions({.connections = 2}, 1);
    EXPECT_TRUE(admit(admissions, 1, One));
    EXPECT_TRUE(admit(admissions, 2, Other));
    EXPECT_FALSE(admit(admissions, 3, Other));
    admissions.leave(3);
    EXPECT_FALSE(admit(admissions, 3, Other)) << "who was not let in leaves nothing";
    admissions.leave(1);
    EXPECT_TRUE(admit(admissions, 3, Other));
}

TEST(Admissions, EndAtTheLimitOfAnAddressUntilOneFromThereLeaves) {
    Admissions admissions({.perAddress = 1}, 1);
    EXPECT_TRUE(admit(admissions, 1, One));
    EXPECT_FALSE(admit(admissions, 2, One));
    EXPECT_TRUE(admit(admissions, 2, Other));
    admissions.leave(1);
    EXPECT_TRUE(admit(admissions, 1, One));
}

TEST(Admissions, CountWhoHasNotBegunAndWhoIsAWebSocket) {
    Admissions admissions({}, 1);
    admit(admissions, 1, One);
    admit(admissions, 2, One);
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
    EXPECT_TRUE(admit(admissions, 1, One));
    EXPECT_TRUE(admit(admissions, 1, Other));
    EXPECT_EQ(admissions.counts().waiting, 1U);
    admissions.leave(1);
    EXPECT_EQ(admissions.counts().waiting, 0U);
    EXPECT_TRUE(admit(admissions, 2, One));
}

// ---- Waiting for the engines ----

constexpr std::int64_t LongMs = 3600000;

TEST(Admissions, WaitForNoEngineThatHasBegunWithEverybody) {
    Admissions admissions({}, 1);
    admissions.waitForEngines(LongMs);
    admit(admissions, 1, One);
    admissions.begin(1);
    admissions.waitForEngines(LongMs);
}

TEST(Admissions, WaitUntilTheEnginesHaveBegunWithEverybody) {
    Admissions admissions({}, 1);
    for (std::uint64_t socket = 1; socket <= 3; ++socket) {
        admit(admissions, socket, One);
    }
    std::future<std::size_t> left = std::async(std::launch::async, [&] {
        admissions.waitForEngines(LongMs);
        return admissions.counts().waiting;
    });
    admissions.begin(1);
    admissions.leave(2);
    vireotest::letOthersRun();
    admissions.begin(3);
    EXPECT_EQ(left.get(), 0U);
}

TEST(Admissions, WaitForNoEngineLongerThanTheyAreTold) {
    Admissions admissions({}, 1);
    admit(admissions, 1, One);
    admissions.waitForEngines(1);
    EXPECT_EQ(admissions.counts().waiting, 1U);
}

} // namespace
