#include "app/files/Listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using testing::HasSubstr;
using testing::Not;
using vireo::impl::escapedHtml;
using vireo::impl::escapedSegment;
using vireo::impl::listingPage;

TEST(ListingTest, TextCannotLeaveItsPlace) {
    EXPECT_EQ(escapedHtml("<a href=\"x\">&'"), "&lt;a href=&quot;x&quot;&gt;&amp;&#39;");
}

TEST(ListingTest, SegmentKeepsWhatUrlsMayHold) {
    EXPECT_EQ(escapedSegment("aZ09-._~"), "aZ09-._~");
    EXPECT_EQ(escapedSegment("a b/?#%\"'<\xC3\xA4:"), "a%20b%2F%3F%23%25%22%27%3C%C3%A4%3A");
}

TEST(ListingTest, DirectoriesStandFirstThenNamesInOrder) {
    const std::string page = listingPage("/", {{"b", false, 1}, {"a", false, 22}, {"z", true, 0}}, true);
    EXPECT_LT(page.find("z/"), page.find(">a<"));
    EXPECT_LT(page.find(">a<"), page.find(">b<"));
    EXPECT_THAT(page, HasSubstr("<td>22</td>"));
}

TEST(ListingTest, NamesAreEscapedAsTextAndAsLink) {
    const std::string page = listingPage("/<x>/", {{"<b>\".txt", false, 1}}, true);
    EXPECT_THAT(page, HasSubstr("<h1>/&lt;x&gt;/</h1>"));
    EXPECT_THAT(page, HasSubstr("href=\"./%3Cb%3E%22.txt\">&lt;b&gt;&quot;.txt</a>"));
    EXPECT_THAT(page, Not(HasSubstr("<b>")));
}

TEST(ListingTest, OnlyTheRootHasNothingAbove) {
    EXPECT_THAT(listingPage("/", {}, true), Not(HasSubstr("../")));
    EXPECT_THAT(listingPage("/a/", {}, false), HasSubstr("href=\"../\""));
}

} // namespace
