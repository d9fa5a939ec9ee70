#include "app/testing/CookieJar.h"

#include <gtest/gtest.h>

namespace vireo::impl {
namespace {

ResponseText answerWith(const std::string& cookie) {
    ResponseText response;
    response.headers.emplace_back("set-cookie", cookie);
    return response;
}

TEST(CookieJar, SendsBackWhatWasSetLast) {
    CookieJar jar;
    EXPECT_EQ(jar.header(), "");
    jar.take(answerWith("b=1; Path=/; HttpOnly"));
    jar.take(answerWith("a=x=y"));
    jar.take(answerWith("b=2"));
    EXPECT_EQ(jar.header(), "a=x=y; b=2");
    jar.clear();
    EXPECT_EQ(jar.header(), "");
}

TEST(CookieJar, ForgetsWhatIsTakenAway) {
    for (const char* removal : {"a=; Max-Age=0", "a=1; max-age=-1", "a=; Expires=Thu, 01 Jan 1970 00:00:00 GMT"}) {
        CookieJar jar;
        jar.take(answerWith("a=1; Max-Age=60"));
        EXPECT_EQ(jar.header(), "a=1");
        jar.take(answerWith(removal));
        EXPECT_EQ(jar.header(), "") << removal;
    }
}

TEST(CookieJar, GoesByDatesAlone) {
    CookieJar jar;
    jar.take(answerWith("a=1; Path=/1970"));
    EXPECT_EQ(jar.header(), "a=1");
}

} // namespace
} // namespace vireo::impl
