#include "engine/SocketAddress.h"

#include "vireo/support/IpAddress.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using ql::impl::SocketAddress;

SocketAddress addressOf(const std::string& numbers, std::uint16_t port = 0) {
    return SocketAddress::Parse(numbers, port).value();
}

std::string textOf(const SocketAddress& address) {
    ql::IpAddress ip;
    ip.fromIP(address.get());
    return ip.toString();
}

TEST(SocketAddress, IsParsedOfEitherKind) {
    EXPECT_EQ(textOf(addressOf("127.0.0.1", 80)), "127.0.0.1");
    EXPECT_EQ(addressOf("127.0.0.1", 80).port(), 80);
    EXPECT_EQ(addressOf("127.0.0.1", 80).family(), AF_INET);
    EXPECT_EQ(textOf(addressOf("2001:db8::1", 8080)), "2001:db8::1");
    EXPECT_EQ(addressOf("2001:db8::1", 8080).port(), 8080);
    EXPECT_EQ(addressOf("::", 1).family(), AF_INET6);
}

TEST(SocketAddress, KnowsTheLinkOfOne) {
    EXPECT_EQ(textOf(addressOf("fe80::1%1")), "fe80::1%1");
}

TEST(SocketAddress, IsNoneOfAnythingElse) {
    for (const char* const text :
         {"", "localhost", "127.0.0.1.1", "256.0.0.1", "127.1", "[::1]", ":::", "::1::", "*"}) {
        EXPECT_EQ(SocketAddress::Parse(text, 80), std::nullopt) << text;
    }
}

TEST(SocketAddress, MappedIPv4IsUnmapped) {
    SocketAddress address = addressOf("::ffff:192.0.2.7", 1234);
    address.unmap();
    EXPECT_EQ(address.family(), AF_INET);
    EXPECT_EQ(textOf(address), "192.0.2.7");
    EXPECT_EQ(address.port(), 1234);
    EXPECT_EQ(static_cast<std::size_t>(address.size()), sizeof(sockaddr_in));
}

TEST(SocketAddress, OthersStayAsTheyAre) {
    for (const char* const text : {"192.0.2.7", "2001:db8::1", "::1", "::fffe:0:1"}) {
        SocketAddress address = addressOf(text, 1);
        address.unmap();
        EXPECT_EQ(textOf(address), text);
        EXPECT_EQ(address.port(), 1);
    }
}

TEST(SocketAddress, KeyIsTheIPv4Address) {
    EXPECT_EQ(addressOf("192.0.2.7", 1).clientKey(), addressOf("192.0.2.7", 2).clientKey());
    EXPECT_NE(addressOf("192.0.2.7").clientKey(), addressOf("192.0.2.8").clientKey());
    EXPECT_NE(addressOf("192.0.2.7").clientKey(), addressOf("193.0.2.7").clientKey());
}

TEST(SocketAddress, KeyIsTheFirstHalfOfAnIPv6Address) {
    EXPECT_EQ(addressOf("2001:db8:1:2::1").clientKey(), addressOf("2001:db8:1:2:ffff:ffff:ffff:ffff").clientKey());
    EXPECT_NE(addressOf("2001:db8:1:2::1").clientKey(), addressOf("2001:db8:1:3::1").clientKey());
    EXPECT_NE(addressOf("::1").clientKey(), addressOf("0.0.0.0").clientKey());
    // The same bytes, in whatever order the machine has them.
    EXPECT_NE(addressOf("2001:db8:0:ffff::1").clientKey(), addressOf("32.1.13.184").clientKey());
}

TEST(SocketAddress, WithoutOneThereIsNoKeyAndNoPort) {
    EXPECT_EQ(SocketAddress().clientKey(), std::nullopt);
    EXPECT_EQ(SocketAddress().port(), 0);
    EXPECT_EQ(textOf(SocketAddress()), "");
}

} // namespace
