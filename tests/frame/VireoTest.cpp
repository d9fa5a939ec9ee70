#include "vireo/Vireo.h"

#include "vireo/HttpBaseRequest.h"
#include "vireo/support/LibInitCounter.h"
#include "vireo/support/SupportLibraries.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <vector>

#include <microhttpd.h>

namespace {

using ql::impl::GetThirdPartyLibVersionInfos;
using testing::Contains;
using testing::Key;
using testing::Not;
using testing::Pair;
using Vireo::Version;

/// Expects everything that bring-up brings to be there, or nothing of it.
void expectUp(bool up) {
    EXPECT_EQ(ql::IsVireoInitialized(), up);
    EXPECT_EQ(ql::isTanagerInitialized(), up);
    EXPECT_EQ(ql::json::isQlPipitInitialized(), up);
    EXPECT_EQ(ql::HttpBaseRequest::sRequestTypes.size(), up ? 10U : 0U);
    if (up) {
        EXPECT_THAT(GetThirdPartyLibVersionInfos(), Contains(Pair("libmicrohttpd", MHD_get_version())));
    } else {
        EXPECT_THAT(GetThirdPartyLibVersionInfos(), Not(Contains(Key("libmicrohttpd"))));
    }
}

TEST(VireoLifecycle, NothingIsUpBeforeTheFirstInitialization) {
    expectUp(false);
}

TEST(VireoLifecycle, InitializationBringsEverythingUpAndTerminationTakesItDown) {
    ql::initializeVireo();
    expectUp(true);
    ql::terminateVireo();
    expectUp(false);
}

TEST(VireoLifecycle, NestedInitializationsWantAsManyTerminations) {
    ql::initializeVireo();
    ql::initializeVireo();
    ql::terminateVireo();
    expectUp(true);
    ql::terminateVireo();
    expectUp(false);
}

TEST(VireoLifecycle, NestedInitializationDoesNotFillTheRegistryAgain) {
    ql::initializeVireo();
    ql::HttpBaseRequest::ClearRequestTypes();
    ql::initializeVireo();
    EXPECT_TRUE(ql::HttpBaseRequest::sRequestTypes.empty());
    ql::terminateVireo();
    ql::terminateVireo();
}

TEST(VireoLifecycle, TerminationWithoutInitializationDoesNothing) {
    ql::initializeTanager("");
    ql::terminateVireo();
    EXPECT_FALSE(ql::IsVireoInitialized());
    EXPECT_TRUE(ql::isTanagerInitialized());
    ql::terminateTanager();

    ql::initializeVireo();
    expectUp(true);
    ql::terminateVireo();
}

TEST(VireoLifecycle, ComponentsThatTheApplicationUsesItselfStayUp) {
    ql::initializeTanager("");
    ql::json::initializeQlPipit();
    ql::initializeVireo();
    ql::terminateVireo();
    EXPECT_TRUE(ql::isTanagerInitialized());
    EXPECT_TRUE(ql::json::isQlPipitInitialized());
    ql::json::terminateQlPipit();
    ql::terminateTanager();
}

TEST(VireoLifecycle, TheLibraryCanComeUpAgain) {
    for (int round = 0; round < 3; ++round) {
        ql::initializeVireo();
        expectUp(true);
        ql::terminateVireo();
        expectUp(false);
    }
}

TEST(VireoLifecycle, CallersOnSeveralThreadsFindTheLibraryUp) {
    for (int round = 0; round < 50; ++round) {
        std::vector<std::thread> users;
        for (int i = 0; i < 4; ++i) {
            users.emplace_back([] {
                ql::initializeVireo();
                expectUp(true);
                ql::terminateVireo();
            });
        }
        for (std::thread& user : users) {
            user.join();
        }
        expectUp(false);
    }
}

TEST(VireoVersion, Numbers) {
    EXPECT_EQ(Version::GetMajor(), 3U);
    EXPECT_EQ(Version::GetMinor(), 0U);
    EXPECT_EQ(Version::GetRelease(), 0U);
    EXPECT_EQ(Version::GetRevision(), 1559U);
}

TEST(VireoVersion, CommitId) {
    EXPECT_STREQ(Version::GetCommitId(), "5c0e19ab7d42f863");
}

TEST(VireoVersion, Date) {
    EXPECT_EQ(Version::GetYear(), 2026);
    EXPECT_EQ(Version::GetMonth(), 6);
    static_assert(std::is_same_v<decltype(Version::GetYear()), std::uint16_t>);
    static_assert(std::is_same_v<decltype(Version::GetMonth()), std::uint8_t>);
}

TEST(VireoVersion, IsAPlainRelease) {
    EXPECT_FALSE(Version::IsBeta());
    EXPECT_FALSE(Version::IsDebug());
    EXPECT_FALSE(Version::IsDev());
}

TEST(VireoVersion, DescriptionsIgnoreTheirFirstFlag) {
    for (const bool flag : {false, true}) {
        EXPECT_STREQ(Version::GetDescStringMajorMinor(flag), "3.0");
        EXPECT_STREQ(Version::GetDescStringMajorMinorRelease(flag), "3.0.0");
        EXPECT_STREQ(Version::GetDescStringMajorMinorReleaseRevision(flag, false), "3.0.0.1559");
        EXPECT_STREQ(Version::GetDescStringMajorMinorReleaseRevision(flag, true), "3.0.0.1559 #5c0e19ab7d42f863");
    }
}

TEST(VireoVersion, FullDescriptionHasTheMonthWithoutLeadingZero) {
    EXPECT_STREQ(Version::GetDescStringMajorMinorReleaseRevisionDate(), "3.0.0.1559 #5c0e19ab7d42f863 2026-6");
}

TEST(VireoVersion, DescriptionsAreTheSameObjectEachTime) {
    EXPECT_EQ(Version::GetDescStringMajorMinorReleaseRevisionDate(),
              Version::GetDescStringMajorMinorReleaseRevisionDate());
    EXPECT_EQ(Version::GetDescStringMajorMinorReleaseRevision(true, true),
              Version::GetDescStringMajorMinorReleaseRevision(false, true));
}

} // namespace
