#include "vireo/SetCookie.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace {

using ql::http::SetCookie;
using SameSite = SetCookie::SameSite;

TEST(SetCookie, HasNameAndValueAlone) {
    const SetCookie cookie("id", "abc");
    EXPECT_EQ(cookie.toString(), "id=abc");
    EXPECT_EQ(cookie.getName(), "id");
    EXPECT_EQ(cookie.getValueAndAttributes(), "abc");
    EXPECT_EQ(SetCookie("a", "").toString(), "a=");
    EXPECT_EQ(SetCookie("a", "\"b\"").toString(), "a=\"b\"");
}

TEST(SetCookie, HasTheAttributesThatAreSet) {
    SetCookie cookie("id", "abc");
    cookie.setPath("/a b")
        .setDomain("example.org")
        .setMaxAge(3600)
        .setSecure()
        .setHttpOnly()
        .setSameSite(SameSite::Lax);
    EXPECT_EQ(cookie.toString(), "id=abc; Path=/a b; Domain=example.org; Max-Age=3600; Secure; HttpOnly; SameSite=Lax");
    cookie.setPath("/").setMaxAge(-1).setSecure(false).setHttpOnly(false).setSameSite(SameSite::Strict);
    EXPECT_EQ(cookie.toString(), "id=abc; Path=/; Domain=example.org; Max-Age=-1; SameSite=Strict");
}

TEST(SetCookie, OfAllSitesIsSecure) {
    EXPECT_EQ(SetCookie("a", "b").setSameSite(SameSite::None).toString(), "a=b; Secure; SameSite=None");
}

TEST(SetCookie, KeepsToThePrefixOfItsName) {
    EXPECT_EQ(SetCookie("__Secure-a", "b").toString(), "__Secure-a=b; Secure");
    EXPECT_EQ(SetCookie("__Secure-a", "b").setPath("/c").setDomain("example.org").setSecure(false).toString(),
              "__Secure-a=b; Path=/c; Domain=example.org; Secure");
    for (const std::string name : {"__Host-a", "__host-a", "__HOST-"}) {
        SetCookie cookie(name, "b");
        EXPECT_EQ(cookie.toString(), name + "=b; Path=/; Secure");
        EXPECT_THROW(cookie.setPath("/c"), std::invalid_argument);
        EXPECT_THROW(cookie.setDomain("example.org"), std::invalid_argument);
        EXPECT_EQ(cookie.setPath("/").setSecure(false).toString(), name + "=b; Path=/; Secure");
    }
    for (const std::string name : {"__Hosta", "a__Host-", "_Host-a", "__Secure", "__Hos"}) {
        EXPECT_EQ(SetCookie(name, "b").setPath("/c").toString(), name + "=b; Path=/c");
    }
}

TEST(SetCookie, EndIsADateOfHttp) {
    const auto end = [](std::int64_t seconds) {
        return SetCookie("a", "b").setExpires(seconds).getValueAndAttributes();
    };
    EXPECT_EQ(end(0), "b; Expires=Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(end(784111777), "b; Expires=Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(end(951782400), "b; Expires=Tue, 29 Feb 2000 00:00:00 GMT");
    EXPECT_EQ(end(253402300799), "b; Expires=Fri, 31 Dec 9999 23:59:59 GMT");
}

TEST(SetCookie, TakesNothingThatIsForbidden) {
    for (const char* const name : {"", "a b", "a=", "a;", "\xC3\xA4"}) {
        EXPECT_THROW(SetCookie(name, "b"), std::invalid_argument) << name;
    }
    for (const char* const value : {"a b", "a;b", "a,b", "a\\b", "\"", "\xC3\xA4", "a\r\n"}) {
        EXPECT_THROW(SetCookie("a", value), std::invalid_argument) << value;
    }
    SetCookie cookie("a", "b");
    for (const char* const path : {"", "a", "/;Secure", "/\n", "/a ", "/\xC3\xA4"}) {
        EXPECT_THROW(cookie.setPath(path), std::invalid_argument) << path;
    }
    for (const char* const domain : {"", "a b", "a;b", "a:80", "[::1]", "a_b"}) {
        EXPECT_THROW(cookie.setDomain(domain), std::invalid_argument) << domain;
    }
    EXPECT_THROW(cookie.setExpires(-1), std::invalid_argument);
    EXPECT_THROW(cookie.setExpires(253402300800), std::invalid_argument);
    EXPECT_EQ(cookie.toString(), "a=b");
}

} // namespace
