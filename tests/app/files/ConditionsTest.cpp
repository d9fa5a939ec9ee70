#include "app/files/Conditions.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace vireo::impl {

std::ostream& operator<<(std::ostream& out, ConditionVerdict verdict) {
    return out << static_cast<int>(verdict);
}

} // namespace vireo::impl

namespace {

using vireo::impl::checkConditions;
using vireo::impl::Conditions;
using vireo::impl::ConditionVerdict;
using vireo::impl::isRangeCurrent;
using vireo::impl::Validators;
using enum vireo::impl::ConditionVerdict;

constexpr std::int64_t Now = 1795305600;
constexpr std::string_view Before = "Sun, 06 Nov 1994 08:49:36 GMT";
constexpr std::string_view Same = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr std::string_view After = "Sun, 06 Nov 1994 08:49:38 GMT";

const Validators strong{"\"a\"", 784111777};
const Validators weak{"W/\"a\"", 784111777};

ConditionVerdict check(const Conditions& conditions, const Validators& now = strong, bool isRead = true) {
    return checkConditions(conditions, now, isRead, Now);
}

TEST(ConditionsTest, WithoutOneTheRequestProceeds) {
    EXPECT_EQ(check({}), Proceed);
}

TEST(ConditionsTest, IfMatchComparesStrongly) {
    EXPECT_EQ(check({.ifMatch = "\"a\""}), Proceed);
    EXPECT_EQ(check({.ifMatch = "*"}), Proceed);
    EXPECT_EQ(check({.ifMatch = "\"b\", \"a\""}), Proceed);
    EXPECT_EQ(check({.ifMatch = "\"b\""}), PreconditionFailed);
    EXPECT_EQ(check({.ifMatch = "W/\"a\""}), PreconditionFailed);
    EXPECT_EQ(check({.ifMatch = "\"a\""}, weak), PreconditionFailed);
    EXPECT_EQ(check({.ifMatch = "W/\"a\""}, weak), PreconditionFailed);
    EXPECT_EQ(check({.ifMatch = "*"}, weak), Proceed);
}

TEST(ConditionsTest, IfNoneMatchComparesWeakly) {
    for (const Validators& now : {strong, weak}) {
        EXPECT_EQ(check({.ifNoneMatch = "\"a\""}, now), NotModified);
        EXPECT_EQ(check({.ifNoneMatch = "W/\"a\""}, now), NotModified);
        EXPECT_EQ(check({.ifNoneMatch = "*"}, now), NotModified);
        EXPECT_EQ(check({.ifNoneMatch = "\"b\",\t\"c\", ,W/\"a\""}, now), NotModified);
        EXPECT_EQ(check({.ifNoneMatch = "\"b\""}, now), Proceed);
        EXPECT_EQ(check({.ifNoneMatch = "\"b\""}, now, false), Proceed);
        EXPECT_EQ(check({.ifNoneMatch = "\"a\""}, now, false), PreconditionFailed);
        EXPECT_EQ(check({.ifNoneMatch = "*"}, now, false), PreconditionFailed);
    }
}

TEST(ConditionsTest, TagsAreTakenAsTheyAre) {
    EXPECT_EQ(check({.ifNoneMatch = "\"x,y\""}, {"\"x,y\"", 0}), NotModified);
    EXPECT_EQ(check({.ifNoneMatch = "\"A\""}), Proceed);
    EXPECT_EQ(check({.ifNoneMatch = "a"}), Proceed);
    EXPECT_EQ(check({.ifNoneMatch = "w/\"a\""}), Proceed);
    EXPECT_EQ(check({.ifNoneMatch = "\"a"}), Proceed);
    EXPECT_EQ(check({.ifNoneMatch = "b, \"a\""}), Proceed);
}

TEST(ConditionsTest, DatesCompareToTheSecond) {
    EXPECT_EQ(check({.ifModifiedSince = Before}), Proceed);
    EXPECT_EQ(check({.ifModifiedSince = Same}), NotModified);
    EXPECT_EQ(check({.ifModifiedSince = After}), NotModified);
    EXPECT_EQ(check({.ifModifiedSince = After}, strong, false), Proceed);
    EXPECT_EQ(check({.ifUnmodifiedSince = Before}), PreconditionFailed);
    EXPECT_EQ(check({.ifUnmodifiedSince = Same}), Proceed);
    EXPECT_EQ(check({.ifUnmodifiedSince = After}), Proceed);
    EXPECT_EQ(check({.ifUnmodifiedSince = Before}, strong, false), PreconditionFailed);
}

TEST(ConditionsTest, DatesThatAreNoneArePassedOver) {
    EXPECT_EQ(check({.ifModifiedSince = "tomorrow"}), Proceed);
    EXPECT_EQ(check({.ifUnmodifiedSince = "yesterday"}), Proceed);
}

/// The steps of RFC 9110 section 13.2.2 as they stand there, on what each header is to come to.
struct Truth {
    std::optional<bool> ifMatch, ifUnmodifiedSince, ifNoneMatch, ifModifiedSince;

    ConditionVerdict verdict(bool isRead) const {
        if (ifMatch ? !*ifMatch : ifUnmodifiedSince && !*ifUnmodifiedSince) {
            return PreconditionFailed;
        }
        if (ifNoneMatch) {
            return *ifNoneMatch ? Proceed : isRead ? NotModified : PreconditionFailed;
        }
        return isRead && ifModifiedSince && !*ifModifiedSince ? NotModified : Proceed;
    }
};

struct Header {
    std::string_view value;
    std::optional<bool> truth;
};

TEST(ConditionsTest, AllCombinationsGoByTheirOrder) {
    constexpr std::array<Header, 4> Match = {{{"", {}}, {"\"a\"", true}, {"\"b\"", false}, {"W/\"a\"", false}}};
    constexpr std::array<Header, 4> None = {{{"", {}}, {"\"b\"", true}, {"\"a\"", false}, {"W/\"a\"", false}}};
    constexpr std::array<Header, 4> Since = {{{"", {}}, {Before, true}, {Same, false}, {"bad", {}}}};
    constexpr std::array<Header, 4> Unmodified = {{{"", {}}, {Same, true}, {Before, false}, {"bad", {}}}};
    for (const Header& match : Match) {
        for (const Header& none : None) {
            for (const Header& since : Since) {
                for (const Header& unmodified : Unmodified) {
                    for (const bool isRead : {true, false}) {
                        const Truth truth{match.truth, unmodified.truth, none.truth, since.truth};
                        EXPECT_EQ(check({.ifMatch = match.value,
                                         .ifNoneMatch = none.value,
                                         .ifModifiedSince = since.value,
                                         .ifUnmodifiedSince = unmodified.value},
                                        strong, isRead),
                                  truth.verdict(isRead))
                            << match.value << "|" << none.value << "|" << since.value << "|" << unmodified.value << "|"
                            << isRead;
                    }
                }
            }
        }
    }
}

TEST(ConditionsTest, IfRangeComparesStrongly) {
    EXPECT_TRUE(isRangeCurrent("", weak, Now));
    EXPECT_TRUE(isRangeCurrent("\"a\"", strong, Now));
    EXPECT_FALSE(isRangeCurrent("\"b\"", strong, Now));
    EXPECT_FALSE(isRangeCurrent("W/\"a\"", strong, Now));
    EXPECT_FALSE(isRangeCurrent("\"a\"", weak, Now));
    EXPECT_FALSE(isRangeCurrent("W/\"a\"", weak, Now));
    EXPECT_FALSE(isRangeCurrent("\"a\", \"b\"", strong, Now));
    EXPECT_FALSE(isRangeCurrent("*", strong, Now));
}

TEST(ConditionsTest, IfRangeTakesThisDateAloneAndOnlyOfAFileThatIsOldEnough) {
    EXPECT_TRUE(isRangeCurrent(Same, strong, Now));
    EXPECT_FALSE(isRangeCurrent(After, strong, Now));
    EXPECT_FALSE(isRangeCurrent(Before, strong, Now));
    EXPECT_FALSE(isRangeCurrent(Same, weak, Now));
    EXPECT_FALSE(isRangeCurrent("yesterday", strong, Now));
}

} // namespace
