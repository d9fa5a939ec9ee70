#include "vireo/ListenEndpoint.h"

#include "engine/ListenEndpointData.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using ql::http::ListenEndpoint;
using ql::impl::ListenEndpointData;
using Kind = ListenEndpointData::Kind;

const ListenEndpointData& dataOf(const ListenEndpoint& endpoint) {
    return ListenEndpointData::of(endpoint);
}

TEST(ListenEndpoint, NamesItself) {
    EXPECT_EQ(ListenEndpoint::Tcp("127.0.0.1", 80).toString(), "127.0.0.1:80");
    EXPECT_EQ(ListenEndpoint::Tcp("::1", 80).toString(), "[::1]:80");
    EXPECT_EQ(ListenEndpoint::DualStack(0).toString(), "*:0");
    EXPECT_EQ(ListenEndpoint::Unix("/run/a b.sock").toString(), "unix:/run/a b.sock");
    EXPECT_EQ(ListenEndpoint::Inherited(3).toString(), "fd:3");
}

TEST(ListenEndpoint, ParsesWhatItCallsItself) {
    for (const char* const text : {"127.0.0.1:80", "[::1]:80", "[fe80::1%eth0]:65535", "*:0", "unix:/run/a:b.sock"}) {
        const auto endpoint = ListenEndpoint::Parse(text);
        ASSERT_TRUE(endpoint) << text;
        EXPECT_EQ(endpoint->toString(), text);
    }
}

TEST(ListenEndpoint, ParsesEachKind) {
    const ListenEndpoint ipv6 = ListenEndpoint::Parse("[::1]:8080").value();
    EXPECT_EQ(dataOf(ipv6).kind, Kind::Tcp);
    EXPECT_EQ(dataOf(ipv6).address, "::1");
    EXPECT_EQ(dataOf(ipv6).port, 8080);
    EXPECT_EQ(dataOf(ListenEndpoint::Parse("*:80").value()).kind, Kind::DualStack);
    const ListenEndpoint path = ListenEndpoint::Parse("unix:/x").value();
    EXPECT_EQ(dataOf(path).kind, Kind::Unix);
    EXPECT_EQ(dataOf(path).address, "/x");
    EXPECT_EQ(dataOf(path).mode, 0600U);
}

TEST(ListenEndpoint, ParsesNothingElse) {
    for (const char* const text :
         {"", "80", ":80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:+1",
          "127.0.0.1:80x", "127.0.0.1: 80", "::1:80", "[::1]", "[]:80", "[::1:80", "::1]:80", "unix:"}) {
        EXPECT_FALSE(ListenEndpoint::Parse(text)) << text;
    }
}

TEST(ListenEndpoint, CopiesDoNotShareTheirTls) {
    const std::shared_ptr<void> owner = std::make_shared<int>();
    const std::shared_ptr<ql::http::TlsContext> context(owner, reinterpret_cast<ql::http::TlsContext*>(owner.get()));
    const ListenEndpoint plain = ListenEndpoint::Tcp("::1", 80);
    ListenEndpoint secure = plain;
    EXPECT_EQ(&secure.setTls(context), &secure);
    EXPECT_EQ(secure.getTls(), context);
    EXPECT_EQ(secure.toString(), "[::1]:80");
    EXPECT_EQ(plain.getTls(), nullptr);
}

} // namespace
