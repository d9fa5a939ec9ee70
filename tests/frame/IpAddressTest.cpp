#include "vireo/support/IpAddress.h"

#include <NativeSockets.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace {

using ql::IpAddress;

IpAddress ipv4(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
    const std::array<std::uint8_t, 4> bytes{a, b, c, d};
    sockaddr_in native{};
    native.sin_family = AF_INET;
    native.sin_port = htons(80);
    std::memcpy(&native.sin_addr, bytes.data(), bytes.size());
    IpAddress address;
    EXPECT_TRUE(address.fromIP(reinterpret_cast<const sockaddr*>(&native)));
    return address;
}

IpAddress ipv6(const std::array<std::uint16_t, 8>& groups, std::uint32_t scope = 0) {
    std::array<std::uint8_t, 16> bytes{};
    for (std::size_t i = 0; i < groups.size(); ++i) {
        bytes[2 * i] = static_cast<std::uint8_t>(groups[i] >> 8U);
        bytes[2 * i + 1] = static_cast<std::uint8_t>(groups[i] & 0xFFU);
    }
    sockaddr_in6 native{};
    native.sin6_family = AF_INET6;
    native.sin6_port = htons(80);
    native.sin6_scope_id = scope;
    std::memcpy(&native.sin6_addr, bytes.data(), bytes.size());
    IpAddress address;
    EXPECT_TRUE(address.fromIP(reinterpret_cast<const sockaddr*>(&native)));
    return address;
}

TEST(IpAddress, DefaultIsNoAddress) {
    const IpAddress address;
    EXPECT_TRUE(address.isEmpty());
    EXPECT_EQ(address.getFamily(), IpAddress::Family::None);
    EXPECT_FALSE(address.isLoopback());
    EXPECT_EQ(address.toString(), "");
}

TEST(IpAddress, NullGivesNoAddressAndDropsTheOldOne) {
    IpAddress address = ipv4(1, 2, 3, 4);
    EXPECT_FALSE(address.fromIP(nullptr));
    EXPECT_EQ(address, IpAddress());
}

TEST(IpAddress, AnotherFamilyGivesNoAddressAndDropsTheOldOne) {
    IpAddress address = ipv4(1, 2, 3, 4);
    sockaddr native{};
    native.sa_family = AF_UNSPEC;
    EXPECT_FALSE(address.fromIP(&native));
    EXPECT_EQ(address, IpAddress());
}

TEST(IpAddress, MisalignedSocketAddressIsRead) {
    sockaddr_in native{};
    native.sin_family = AF_INET;
    native.sin_addr.s_addr = htonl(0x01020304);
    alignas(sockaddr_in) std::array<unsigned char, sizeof(native) + 2> memory{};
    // sa_family_t itself wants two bytes' alignment, what follows wants four.
    std::memcpy(memory.data() + 2, &native, sizeof(native));
    IpAddress address;
    EXPECT_TRUE(address.fromIP(reinterpret_cast<const sockaddr*>(memory.data() + 2)));
    EXPECT_EQ(address.toString(), "1.2.3.4");
}

TEST(IpAddress, Ipv4TextIsDottedDecimal) {
    EXPECT_EQ(ipv4(0, 0, 0, 0).toString(), "0.0.0.0");
    EXPECT_EQ(ipv4(192, 168, 1, 255).toString(), "192.168.1.255");
    EXPECT_EQ(ipv4(1, 2, 3, 4).getFamily(), IpAddress::Family::IPv4);
    EXPECT_FALSE(ipv4(0, 0, 0, 0).isEmpty());
}

TEST(IpAddress, Ipv6TextHasLowerCaseGroupsWithoutLeadingZeros) {
    EXPECT_EQ(ipv6({0x2001, 0xDB8, 0x1, 0x20, 0x300, 0xABCD, 0xE, 0xF0}).toString(), "2001:db8:1:20:300:abcd:e:f0");
    EXPECT_EQ(ipv6({1, 2, 3, 4, 5, 6, 7, 8}).getFamily(), IpAddress::Family::IPv6);
}

TEST(IpAddress, Ipv6TextCompressesZerosAnywhere) {
    EXPECT_EQ(ipv6({0, 0, 0, 0, 0, 0, 0, 0}).toString(), "::");
    EXPECT_EQ(ipv6({0, 0, 0, 0, 0, 0, 0, 1}).toString(), "::1");
    EXPECT_EQ(ipv6({1, 0, 0, 0, 0, 0, 0, 0}).toString(), "1::");
    EXPECT_EQ(ipv6({0x2001, 0xDB8, 0, 0, 0, 0, 0, 1}).toString(), "2001:db8::1");
}

TEST(IpAddress, OneZeroGroupIsNotCompressed) {
    EXPECT_EQ(ipv6({0x2001, 0xDB8, 0, 1, 1, 1, 1, 1}).toString(), "2001:db8:0:1:1:1:1:1");
    EXPECT_EQ(ipv6({0, 1, 1, 1, 1, 1, 1, 0}).toString(), "0:1:1:1:1:1:1:0");
}

TEST(IpAddress, TheLongestRunOfZerosIsCompressed) {
    EXPECT_EQ(ipv6({0x2001, 0, 0, 1, 0, 0, 0, 1}).toString(), "2001:0:0:1::1");
    EXPECT_EQ(ipv6({0, 0, 0, 1, 0, 0, 1, 1}).toString(), "::1:0:0:1:1");
}

TEST(IpAddress, OfEqualRunsTheFirstIsCompressed) {
    EXPECT_EQ(ipv6({0x2001, 0xDB8, 0, 0, 1, 0, 0, 1}).toString(), "2001:db8::1:0:0:1");
}

TEST(IpAddress, MappedIpv4IsShownDotted) {
    EXPECT_EQ(ipv6({0, 0, 0, 0, 0, 0xFFFF, 0x7F00, 1}).toString(), "::ffff:127.0.0.1");
    EXPECT_EQ(ipv6({0, 0, 0, 0, 0, 0xFFFE, 0x7F00, 1}).toString(), "::fffe:7f00:1");
}

TEST(IpAddress, SameAddressOfTwoLinksIsTwoAddresses) {
    const std::array<std::uint16_t, 8> groups{0xFE80, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ(ipv6(groups, 2), ipv6(groups, 2));
    EXPECT_NE(ipv6(groups, 2), ipv6(groups, 3));
    EXPECT_EQ(ipv6(groups, 2).toString(), "fe80::1%2");
    EXPECT_EQ(ipv6(groups).toString(), "fe80::1");
}

TEST(IpAddress, LoopbackIsTheWholeOf127AndOne) {
    EXPECT_TRUE(ipv4(127, 0, 0, 1).isLoopback());
    EXPECT_TRUE(ipv4(127, 255, 255, 255).isLoopback());
    EXPECT_FALSE(ipv4(126, 255, 255, 255).isLoopback());
    EXPECT_FALSE(ipv4(128, 0, 0, 0).isLoopback());
    EXPECT_TRUE(ipv6({0, 0, 0, 0, 0, 0, 0, 1}).isLoopback());
    EXPECT_FALSE(ipv6({0, 0, 0, 0, 0, 0, 0, 0}).isLoopback());
    EXPECT_FALSE(ipv6({0, 0, 0, 0, 0, 0, 0, 2}).isLoopback());
    EXPECT_FALSE(ipv6({1, 0, 0, 0, 0, 0, 0, 1}).isLoopback());
}

TEST(IpAddress, EqualityLooksAtFamilyAndBytes) {
    EXPECT_EQ(ipv4(1, 2, 3, 4), ipv4(1, 2, 3, 4));
    EXPECT_NE(ipv4(1, 2, 3, 4), ipv4(1, 2, 3, 5));
    EXPECT_NE(ipv4(0, 0, 0, 0), ipv6({0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_NE(ipv4(0, 0, 0, 0), IpAddress());
}

TEST(IpAddress, AnIpv4AddressLeavesNothingOfAnEarlierIpv6One) {
    IpAddress address = ipv6({1, 2, 3, 4, 5, 6, 7, 8});
    sockaddr_in native{};
    native.sin_family = AF_INET;
    native.sin_addr.s_addr = htonl(0x01020304);
    ASSERT_TRUE(address.fromIP(reinterpret_cast<const sockaddr*>(&native)));
    EXPECT_EQ(address, ipv4(1, 2, 3, 4));
}

IpAddress parsed(std::string_view text) {
    const std::optional<IpAddress> address = IpAddress::Parse(text);
    EXPECT_TRUE(address.has_value()) << text;
    return address.value_or(IpAddress());
}

TEST(IpAddress, ParsesWhatItWrites) {
    for (const std::string_view text : {"0.0.0.0", "192.168.1.255", "::", "::1", "2001:db8::1:0:0:1",
                                        "::ffff:127.0.0.1", "fe80::1%2", "fe80::1%4294967295"}) {
        EXPECT_EQ(parsed(text).toString(), text);
    }
    EXPECT_EQ(parsed("10.1.2.3"), ipv4(10, 1, 2, 3));
    EXPECT_EQ(parsed("fe80::1%7"), ipv6({0xFE80, 0, 0, 0, 0, 0, 0, 1}, 7));
}

TEST(IpAddress, ParsesOtherFormsOfIpv6) {
    EXPECT_EQ(parsed("2001:0DB8:0:0:0:0:0:0001"), ipv6({0x2001, 0xDB8, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(parsed("::10.0.0.1"), ipv6({0, 0, 0, 0, 0, 0, 0x0A00, 1}));
}

TEST(IpAddress, ParsesNothingElse) {
    using namespace std::string_view_literals;
    for (const std::string_view text :
         {""sv,          "1.2.3"sv,    "1.2.3.4.5"sv, "1.2.3.256"sv,  "1.2.3.4:80"sv,         "[::1]"sv,     "::1::"sv,
          ":::"sv,       "12345::"sv,  "localhost"sv, " 1.2.3.4"sv,   "1.2.3.4 "sv,           "1.2.3.4\0"sv, "::1\0x"sv,
          "1.2.3.4%1"sv, "fe80::1%"sv, "fe80::1%x"sv, "fe80::1%1x"sv, "fe80::1%4294967296"sv, "fe80::1%-1"sv}) {
        EXPECT_FALSE(IpAddress::Parse(text).has_value()) << text;
    }
}

TEST(IpAddress, IsWithinWhatBeginsWithTheSameBits) {
    struct Case {
        std::string_view address;
        std::string_view network;
        unsigned int bits;
        bool isWithin;
    };
    const Case cases[] = {
        {"10.1.2.3", "10.0.0.0", 8, true},           {"11.1.2.3", "10.0.0.0", 8, false},
        {"11.1.2.3", "10.0.0.0", 7, true},           {"12.1.2.3", "10.0.0.0", 7, false},
        {"10.1.2.3", "10.1.2.3", 32, true},          {"10.1.2.2", "10.1.2.3", 32, false},
        {"10.1.2.2", "10.1.2.3", 31, true},          {"200.1.2.3", "10.0.0.0", 0, true},
        {"172.16.0.1", "172.16.0.0", 12, true},      {"172.31.255.255", "172.16.0.0", 12, true},
        {"172.32.0.0", "172.16.0.0", 12, false},     {"10.1.2.3", "10.1.2.3", 33, false},
        {"2001:db8::1", "2001:db8::", 32, true},     {"2001:db9::1", "2001:db8::", 32, false},
        {"2001:db9::1", "2001:db8::", 31, true},     {"2001:db8::1", "2001:db8::1", 128, true},
        {"2001:db8::1", "2001:db8::1", 129, false},  {"2001:db8::2", "2001:db8::1", 128, false},
        {"fe80::1%3", "fe80::", 64, true},           {"::", "2001:db8::", 0, true},
        {"::ffff:10.1.2.3", "10.0.0.0", 8, true},    {"::ffff:11.1.2.3", "10.0.0.0", 8, false},
        {"::10.1.2.3", "10.0.0.0", 8, false},        {"::ffff:10.1.2.3", "10.1.2.3", 33, false},
        {"10.1.2.3", "::ffff:10.0.0.0", 104, false}, {"::1", "127.0.0.1", 0, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(parsed(c.address).isWithin(parsed(c.network), c.bits), c.isWithin)
            << c.address << " in " << c.network << "/" << c.bits;
    }
    EXPECT_FALSE(IpAddress().isWithin(IpAddress(), 0));
    EXPECT_FALSE(IpAddress().isWithin(parsed("0.0.0.0"), 0));
    EXPECT_FALSE(parsed("1.2.3.4").isWithin(IpAddress(), 0));
}

} // namespace
