#include "app/request/ForwardedClient.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ql::HeaderLine;
using ql::IpAddress;
using vireo::impl::findForwardedClient;
using vireo::impl::ProxyRules;

IpAddress address(std::string_view text) {
    return text.empty() ? IpAddress() : IpAddress::Parse(text).value();
}

TEST(ProxyRules, NetworksAreTrusted) {
    const ProxyRules rules({"127.0.0.1", "10.0.0.0/8", "::1", "2001:db8::/32"});
    for (const std::string_view peer : {"127.0.0.1", "10.255.0.1", "::1", "2001:db8:1::7", "::ffff:10.0.0.1"}) {
        EXPECT_TRUE(rules.isTrusted(address(peer))) << peer;
    }
    for (const std::string_view peer : {"127.0.0.2", "11.0.0.1", "::2", "2001:db9::", ""}) {
        EXPECT_FALSE(rules.isTrusted(address(peer))) << peer;
    }
    EXPECT_TRUE(ProxyRules({"unix:"}).isTrusted(IpAddress()));
    EXPECT_FALSE(ProxyRules({"unix:"}).isTrusted(address("127.0.0.1")));
    EXPECT_FALSE(ProxyRules({}).isTrusted(address("127.0.0.1")));
    EXPECT_TRUE(ProxyRules({"0.0.0.0/0"}).isTrusted(address("8.8.8.8")));
}

TEST(ProxyRules, WhatIsNoNetworkIsRefused) {
    for (const char* const text : {"", "localhost", "10.0.0.0/", "10.0.0.0/33", "::/129", "10.0.0.0/8x", "10.0.0/8",
                                   "10.0.0.0/-1", "/8", "unix", "10.0.0.0/8/8"}) {
        EXPECT_THROW(ProxyRules({text}), std::invalid_argument) << text;
    }
}

struct Case {
    std::string_view peer;
    std::vector<std::string_view> lines;
    std::string_view client;
};

TEST(ForwardedClient, IsTheLastAddressThatIsNoProxys) {
    const ProxyRules rules({"10.0.0.0/8", "::1", "unix:"});
    const Case cases[] = {
        {"192.0.2.1", {"203.0.113.7"}, "192.0.2.1"}, // not a proxy: nobody believes it
        {"10.0.0.1", {}, "10.0.0.1"},
        {"10.0.0.1", {"203.0.113.7"}, "203.0.113.7"},
        {"10.0.0.1", {"1.1.1.1, 203.0.113.7"}, "203.0.113.7"}, // the client has written the first one
        {"10.0.0.1", {"1.1.1.1 ,\t203.0.113.7 , 10.0.0.2"}, "203.0.113.7"},
        {"10.0.0.1", {"1.1.1.1", "203.0.113.7, 10.0.0.3", "10.0.0.2"}, "203.0.113.7"},
        {"10.0.0.1", {"10.0.0.4, 10.0.0.3"}, "10.0.0.4"},
        {"10.0.0.1", {"1.1.1.1, unknown, 10.0.0.2"}, "10.0.0.2"},
        {"10.0.0.1", {"1.1.1.1, , 10.0.0.2"}, "10.0.0.2"},
        {"10.0.0.1", {""}, "10.0.0.1"},
        {"10.0.0.1", {"1.1.1.1, garbage"}, "10.0.0.1"},
        {"10.0.0.1", {"203.0.113.7:4711"}, "203.0.113.7"},
        {"10.0.0.1", {"[2001:db8::7]:4711"}, "2001:db8::7"},
        {"10.0.0.1", {"[2001:db8::7]"}, "2001:db8::7"},
        {"10.0.0.1", {"2001:db8::7"}, "2001:db8::7"},
        {"10.0.0.1", {"[2001:db8::7]x"}, "10.0.0.1"},
        {"10.0.0.1", {"[2001:db8::7"}, "10.0.0.1"},
        {"::1", {"2001:db8::7, ::1"}, "2001:db8::7"},
        {"", {"203.0.113.7"}, "203.0.113.7"},
    };
    for (const Case& c : cases) {
        std::vector<HeaderLine> lines{{"Host", "example.org"}};
        std::string said;
        for (const std::string_view line : c.lines) {
            lines.push_back({"x-forwarded-FOR", line});
            said += std::string(line) + " | ";
        }
        EXPECT_EQ(findForwardedClient(lines, address(c.peer), rules).toString(), c.client) << c.peer << " : " << said;
    }
}

} // namespace
