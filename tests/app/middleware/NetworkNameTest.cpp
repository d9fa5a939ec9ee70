#include "app/middleware/NetworkName.h"

#include <gtest/gtest.h>

#include <string_view>

namespace {

std::string name(std::string_view address) {
    return vireo::impl::networkName(ql::IpAddress::Parse(address).value());
}

TEST(NetworkName, IsTheWholeOfAnIpv4Address) {
    EXPECT_EQ(name("192.0.2.7"), "192.0.2.7");
    EXPECT_EQ(name("::ffff:192.0.2.7"), "192.0.2.7");
}

TEST(NetworkName, IsTheFirstHalfOfAnIpv6Address) {
    EXPECT_EQ(name("2001:db8:1:2:3:4:5:6"), "2001:db8:1:2:");
    EXPECT_EQ(name("2001:db8:1:2::1"), "2001:db8:1:2:");
    EXPECT_EQ(name("2001:db8:1::1"), "2001:db8:1:0:");
    EXPECT_EQ(name("2001:db8::1"), "2001:db8:0:0:");
    EXPECT_EQ(name("2001::4:5:6:7:8"), "2001:0:0:4:");
    EXPECT_EQ(name("::3:4:5:6:7:8"), "0:0:3:4:");
    EXPECT_EQ(name("1::"), "1:0:0:0:");
    EXPECT_EQ(name("::"), "0:0:0:0:");
    EXPECT_EQ(name("::1"), "0:0:0:0:");
    EXPECT_EQ(name("::1.2.3.4"), "0:0:0:0:");
    EXPECT_EQ(name("fe80::1%7"), "fe80:0:0:0:");
}

TEST(NetworkName, LocalSocketsAreOne) {
    EXPECT_EQ(vireo::impl::networkName(ql::IpAddress()), "unix:");
}

} // namespace
