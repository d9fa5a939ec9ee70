#include "app/files/MimeTypes.h"

#include <gtest/gtest.h>

namespace {

using vireo::impl::extensionOf;
using vireo::impl::mimeTypeOf;

TEST(MimeTypesTest, ExtensionIsWhatFollowsTheLastDot) {
    EXPECT_EQ(extensionOf("page.html"), "html");
    EXPECT_EQ(extensionOf("archive.tar.gz"), "gz");
    EXPECT_EQ(extensionOf("README"), "");
    EXPECT_EQ(extensionOf(".profile"), "");
    EXPECT_EQ(extensionOf("a."), "");
}

TEST(MimeTypesTest, TextsAreUtf8) {
    EXPECT_EQ(mimeTypeOf("html"), "text/html; charset=utf-8");
    EXPECT_EQ(mimeTypeOf("JS"), "text/javascript; charset=utf-8");
    EXPECT_EQ(mimeTypeOf("json"), "application/json");
    EXPECT_EQ(mimeTypeOf("png"), "image/png");
}

TEST(MimeTypesTest, UnknownOnesAreBytes) {
    EXPECT_EQ(mimeTypeOf(""), "application/octet-stream");
    EXPECT_EQ(mimeTypeOf("xyz"), "application/octet-stream");
}

} // namespace
