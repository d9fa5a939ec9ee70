#include "app/request/HeadView.h"

#include "app/kernel/Endpoint.h"
#include "app/routing/RouteTable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ql::HeaderLine;
using ql::IpAddress;
using vireo::impl::Endpoint;
using vireo::impl::HeadView;
using vireo::impl::Match;
using vireo::impl::ProxyRules;
using vireo::impl::RouteTable;

IpAddress address(std::string_view text) {
    return IpAddress::Parse(text).value();
}

/// A head with its lines.
struct Head {
    Head(std::string_view target, std::vector<HeaderLine> headerLines, std::string_view peer = "192.0.2.1",
         std::shared_ptr<const ProxyRules> proxies = nullptr)
        : lines(std::move(headerLines)), view("GET", target, lines, address(peer), nullptr, std::move(proxies)) {}

    std::vector<HeaderLine> lines;
    HeadView view;
};

void matchWith(HeadView& view, std::string_view pattern) {
    RouteTable table;
    auto endpoint = std::make_shared<Endpoint>();
    endpoint->method = "GET";
    endpoint->pattern = pattern;
    table.add(endpoint);
    const Match match = table.match("GET", view.segments());
    ASSERT_EQ(match.outcome, Match::Outcome::Found);
    view.setMatch(match);
}

TEST(HeadView, SplitsTheTargetAtItsFirstQuestionMark) {
    Head head("/a%20b/c?x=1?&y", {});
    EXPECT_EQ(head.view.split(), HeadView::Fault::None);
    EXPECT_EQ(head.view.rawPath(), "/a%20b/c");
    EXPECT_EQ(head.view.rawQuery(), "x=1?&y");
    EXPECT_EQ(head.view.path(), "/a b/c");
    EXPECT_EQ(head.view.target(), "/a%20b/c?x=1?&y");
    EXPECT_EQ(head.view.method(), "GET");
}

TEST(HeadView, SaysWhatIsWrongWithAPath) {
    EXPECT_EQ(Head("/a/%2e%2e/b", {}).view.split(), HeadView::Fault::DotSegment);
    EXPECT_EQ(Head("/%FF", {}).view.split(), HeadView::Fault::NotUtf8);
    EXPECT_EQ(Head("/%00", {}).view.split(), HeadView::Fault::Nul);
    EXPECT_EQ(Head("/%0", {}).view.split(), HeadView::Fault::BadEscape);
    EXPECT_EQ(Head("/?%FF=..", {}).view.split(), HeadView::Fault::None);
}

TEST(HeadView, TheTargetOfTheWholeServerHasNoSegments) {
    Head head("*", {});
    EXPECT_EQ(head.view.split(), HeadView::Fault::None);
    EXPECT_TRUE(head.view.segments().empty());
    EXPECT_EQ(head.view.path(), "*");
}

TEST(HeadView, TogglesTheSlashBeforeTheQuery) {
    EXPECT_EQ(Head("/a%2F", {}).view.toggledTarget(), "/a%2F/");
    EXPECT_EQ(Head("/a/?b=/", {}).view.toggledTarget(), "/a?b=/");
    EXPECT_EQ(Head("/a?", {}).view.toggledTarget(), "/a/?");
}

TEST(HeadView, ParametersAreFoundByTheirNames) {
    Head head("/notes/7/a%2Fb/x//y/", {});
    ASSERT_EQ(head.view.split(), HeadView::Fault::None);
    matchWith(head.view, "/notes/{id:int}/{name}/{rest:path}");
    EXPECT_EQ(head.view.route(), "/notes/{id:int}/{name}/{rest:path}");
    EXPECT_EQ(*head.view.findPath("id"), "7");
    EXPECT_EQ(*head.view.findPath("name"), "a/b");
    EXPECT_EQ(*head.view.findPath("rest"), "x//y/");
    EXPECT_EQ(head.view.findPath("other"), nullptr);
    EXPECT_EQ(head.view.restSegments().size(), 4U);
    EXPECT_EQ(head.view.restSegments().front(), "x");
}

TEST(HeadView, WithoutARouteThereAreNoParameters) {
    Head head("/a", {});
    ASSERT_EQ(head.view.split(), HeadView::Fault::None);
    EXPECT_EQ(head.view.findPath("a"), nullptr);
    EXPECT_EQ(head.view.route(), "");
    EXPECT_TRUE(head.view.restSegments().empty());
    head.view.setMatch(Match());
    EXPECT_EQ(head.view.route(), "");
}

TEST(HeadView, ArgumentsOfTheQuery) {
    Head head("/?a=1&b&a=2", {});
    EXPECT_EQ(head.view.query("a"), "1");
    EXPECT_EQ(head.view.query("b"), "");
    EXPECT_TRUE(head.view.hasQuery("b"));
    EXPECT_FALSE(head.view.hasQuery("c"));
    EXPECT_EQ(head.view.query("c"), "");
    EXPECT_EQ(head.view.queryAll("a"), std::vector<std::string>({"1", "2"}));
}

TEST(HeadView, HeadersInAnyCaseAndJoined) {
    Head head("/", {{"X-One", "a"}, {"x-two", "b"}, {"X-ONE", "c, d"}, {"X-Empty", ""}});
    EXPECT_EQ(head.view.header("x-one"), "a, c, d");
    EXPECT_EQ(head.view.header("X-Two"), "b");
    EXPECT_EQ(head.view.header("X-Empty"), "");
    EXPECT_EQ(head.view.header("X-Three"), "");
    EXPECT_EQ(head.view.headerAll("X-One"), std::vector<std::string>({"a", "c, d"}));
    EXPECT_EQ(head.view.line("x-ONE"), "a");
    EXPECT_EQ(head.view.line("none"), "");
}

TEST(HeadView, CookiesOfAllLines) {
    Head head("/", {{"Cookie", "a=1; b=2"}, {"cookie", "c=\"3\"; a=4"}});
    EXPECT_EQ(head.view.cookie("a"), "1");
    EXPECT_EQ(head.view.cookie("c"), "3");
    EXPECT_EQ(head.view.cookie("A"), "");
    EXPECT_EQ(head.view.cookies().size(), 4U);
}

TEST(HeadView, NobodyIsBelievedWithoutTrust) {
    const std::vector<HeaderLine> lines{{"Host", "inner"},
                                        {"X-Forwarded-For", "203.0.113.7"},
                                        {"X-Forwarded-Proto", "https"},
                                        {"X-Forwarded-Host", "outer"},
                                        {"X-Request-Id", "abc"}};
    const auto rules = std::make_shared<const ProxyRules>(std::vector<std::string>{"10.0.0.0/8"});
    for (const auto& proxies : {std::shared_ptr<const ProxyRules>(), rules}) {
        Head head("/", lines, "192.0.2.1", proxies);
        EXPECT_EQ(head.view.client(), "192.0.2.1");
        EXPECT_EQ(head.view.scheme(), "http");
        EXPECT_EQ(head.view.host(), "inner");
        EXPECT_NE(head.view.id(), "abc");
    }
}

TEST(HeadView, OnlyAHostIsTakenForOne) {
    const auto rules = std::make_shared<const ProxyRules>(std::vector<std::string>{"10.0.0.0/8"});
    const auto hostOf = [&rules](std::string_view said) {
        Head head("/", {{"Host", "inner"}, {"X-Forwarded-Host", said}}, "10.1.2.3", rules);
        return head.view.host();
    };
    for (const char* const host : {"outer.example:8080", "[2001:db8::1]:80", "a_b-c~d", "x%41"}) {
        EXPECT_EQ(hostOf(host), host);
    }
    for (const char* const text :
         {"", "evil.example/\"><script>", "a b", "user@host", "a/b", "a?b", "a#b", "<a>", "a\tb", "caf\xC3\xA9",
          "a:b:c", "][", "[::1", "[]", "a]", ":80", "a:b", "[::1]x", "::1"}) {
        EXPECT_EQ(hostOf(text), "inner") << text;
    }
}

TEST(HeadView, ATrustedProxyIsBelieved) {
    const auto rules = std::make_shared<const ProxyRules>(std::vector<std::string>{"10.0.0.0/8"});
    Head head("/",
              {{"Host", "inner"},
               {"X-Forwarded-For", "203.0.113.7"},
               {"X-Forwarded-Proto", "http, HTTPS"},
               {"X-Forwarded-Host", "false, outer"},
               {"X-Request-Id", "a.B_c-9"}},
              "10.1.2.3", rules);
    EXPECT_EQ(head.view.client(), "203.0.113.7");
    EXPECT_EQ(head.view.clientAddress().toString(), "203.0.113.7");
    EXPECT_EQ(head.view.scheme(), "https");
    EXPECT_EQ(head.view.host(), "outer");
    EXPECT_EQ(head.view.id(), "a.B_c-9");
}

TEST(HeadView, WhatATrustedProxyCannotHaveMeantIsPassedOver) {
    const auto rules = std::make_shared<const ProxyRules>(std::vector<std::string>{"10.0.0.0/8"});
    for (const std::string& id :
         {std::string("a b"), std::string("\xC3\xA9"), std::string("a\"b"), std::string(65, 'a')}) {
        Head head("/", {{"X-Request-Id", id}, {"X-Forwarded-Proto", "ftp"}}, "10.1.2.3", rules);
        EXPECT_NE(head.view.id(), id);
        EXPECT_EQ(head.view.scheme(), "http");
    }
    const std::string longest(64, 'a');
    EXPECT_EQ(Head("/", {{"X-Request-Id", longest}}, "10.1.2.3", rules).view.id(), longest);
}

TEST(HeadView, PageIsFromHereByItsHostAndByTlsWhereThatIsTold) {
    const auto rules = std::make_shared<const ProxyRules>(std::vector<std::string>{"10.0.0.0/8"});
    const auto isFrom = [&rules](const char* proto, const char* host, const char* origin) {
        Head head("/", {{"Host", "inner"}, {"X-Forwarded-Host", host}, {"X-Forwarded-Proto", proto}}, "10.1.2.3",
                  rules);
        return head.view.isFrom(origin);
    };
    for (const char* const origin :
         {"https://outer.example", "HTTPS://Outer.Example", "https://outer.example:443", "https://OUTER.example:443"}) {
        EXPECT_TRUE(isFrom("https", "outer.example", origin)) << origin;
        EXPECT_TRUE(isFrom("https", "Outer.example:443", origin)) << origin;
        EXPECT_TRUE(isFrom("", "outer.example", origin)) << origin;
    }
    EXPECT_TRUE(isFrom("http", "outer.example", "http://outer.example:80"));
    EXPECT_TRUE(isFrom("http", "outer.example:80", "http://outer.example"));
    EXPECT_TRUE(isFrom("http", "[::1]:8080", "http://[::1]:8080"));
    EXPECT_FALSE(isFrom("https", "outer.example", "http://outer.example"));
    EXPECT_FALSE(isFrom("http", "outer.example:443", "http://outer.example"));
    for (const char* const origin :
         {"", "null", "https", "https:", "https://", "https://inner", "https://outer.example:8443", "outer.example",
          "https://outer.example/", "https://me@outer.example", "https://outer.example, https://outer.example",
          "wss://outer.example", "://outer.example", "https://x.outer.example", "https://outer.example.org"}) {
        EXPECT_FALSE(isFrom("https", "outer.example", origin)) << origin;
        EXPECT_FALSE(isFrom("http", "outer.example", origin)) << origin;
    }
    Head hostless("/", {});
    EXPECT_FALSE(hostless.view.isFrom("https://"));
}

TEST(HeadView, LocalSocketsHaveAName) {
    HeadView view("GET", "/", {}, IpAddress(), nullptr, nullptr);
    EXPECT_EQ(view.client(), "unix:");
    EXPECT_TRUE(view.clientAddress().isEmpty());
}

TEST(HeadView, IdsAreNotRepeated) {
    std::set<std::string> ids;
    for (int i = 0; i < 100; ++i) {
        Head head("/", {});
        const std::string id = head.view.id();
        EXPECT_EQ(id, head.view.id());
        EXPECT_TRUE(ids.insert(id).second);
        EXPECT_EQ(id.find_first_not_of("0123456789abcdef-"), std::string::npos);
    }
}

TEST(HeadView, ManyThreadsMayAskAtOnce) {
    constexpr int Threads = 4;
    for (int round = 0; round < 50; ++round) {
        const auto rules = std::make_shared<const ProxyRules>(std::vector<std::string>{"192.0.2.0/24"});
        Head head("/a%20b?x=1&y=2", {{"X-A", "1"}, {"X-B", "2"}, {"Cookie", "c=3"}, {"X-Forwarded-For", "1.2.3.4"}},
                  "192.0.2.1", rules);
        ASSERT_EQ(head.view.split(), HeadView::Fault::None);
        std::atomic<int> ready{0};
        std::vector<std::string> texts(Threads);
        std::vector<std::thread> threads;
        for (std::string& text : texts) {
            threads.emplace_back([&head, &ready, &text] {
                ++ready;
                while (ready < Threads) {
                    std::this_thread::yield();
                }
                const HeadView& view = head.view;
                text = view.query("y") + view.header("x-b") + view.header("x-a") + view.cookie("c") + view.client() +
                       view.path() + view.target() + view.id() + view.host() + view.scheme();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const std::string& text : texts) {
            EXPECT_EQ(text, texts.front());
        }
        EXPECT_EQ(texts.front().substr(0, 11), "22131.2.3.4");
    }
}

} // namespace
