#include "app/testing/ClientConnection.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace vireo::impl {
namespace {

TEST(ServerPlace, IsReadFromAUrl) {
    EXPECT_EQ(ServerPlace::Of("http://127.0.0.1:8181/").url(), "http://127.0.0.1:8181");
    EXPECT_EQ(ServerPlace::Of("http://localhost").authority(), "localhost");
    EXPECT_EQ(ServerPlace::Of("http://localhost").port, "80");
    const ServerPlace ipv6 = ServerPlace::Of("http://[::1]:81");
    EXPECT_EQ(ipv6.hostText, "[::1]");
    EXPECT_EQ(ipv6.port, "81");
    EXPECT_EQ(ServerPlace::Of("http://[::1]").authority(), "[::1]");
}

TEST(ServerPlace, IsNothingElse) {
    for (const char* url : {"", "127.0.0.1:81", "https://127.0.0.1", "http://", "http://:81", "http://a:b", "http://a:",
                            "http://a/b", "http://a?b", "http://u@a", "http://[]", "http://a]:81", "http://a:123456"}) {
        EXPECT_THROW(ServerPlace::Of(url), std::invalid_argument) << url;
    }
}

} // namespace
} // namespace vireo::impl
