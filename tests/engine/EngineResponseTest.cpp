#include "engine/EngineResponse.h"

#include "engine/EngineConnection.h"
#include "support/FakeRequest.h"
#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include <microhttpd.h>

namespace {

using ql::impl::EngineResponse;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using vireotest::FakeResponse;
using vireotest::TestLog;

using Lines = std::vector<std::pair<std::string, std::string>>;

MHD_Result collect(void* closure, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    static_cast<Lines*>(closure)->emplace_back(name, value);
    return MHD_YES;
}

class EngineResponseTest : public testing::Test {
protected:
    Lines lines() const {
        Lines found;
        MHD_get_response_headers(native_, &collect, &found);
        return found;
    }

    std::string empty_;
    MHD_Response* const native_ = MHD_create_response_from_buffer(0, empty_.data(), MHD_RESPMEM_PERSISTENT);
    EngineResponse response_{native_};
    FakeResponse description_;
    const TestLog log_;
};

TEST_F(EngineResponseTest, HeadersGoOutInTheOrderOfTheirKeysUnderTheirNames) {
    description_.headers = {{"2", {"Content-Type", "text/plain"}}, {"1", {"X-First", "yes"}}};
    response_.addHeadersAndCookies(description_);
    EXPECT_THAT(lines(), ElementsAre(Pair("X-First", "yes"), Pair("Content-Type", "text/plain")));
}

TEST_F(EngineResponseTest, EachCookieIsASetCookieLineAfterTheHeaders) {
    description_.headers = {{"z", {"X-Last", "yes"}}};
    description_.cookies = {{"b", "2; Path=/"}, {"a", "b"}};
    response_.addHeadersAndCookies(description_);
    EXPECT_THAT(lines(),
                ElementsAre(Pair("X-Last", "yes"), Pair("Set-cookie", "a=b"), Pair("Set-cookie", "b=2; Path=/")));
}

TEST_F(EngineResponseTest, HeaderCountsNameAndValueAndThree) {
    description_.headers = {{"1", {"Name", "value"}}, {"2", {"N", "v"}}};
    EXPECT_EQ(response_.addHeadersAndCookies(description_), 4U + 5U + 3U + 1U + 1U + 3U);
}

TEST_F(EngineResponseTest, CookieCountsNameAndValueAndFifteen) {
    description_.cookies = {{"name", "value"}, {"n", ""}};
    EXPECT_EQ(response_.addHeadersAndCookies(description_), 4U + 5U + 15U + 1U + 15U);
}

TEST_F(EngineResponseTest, NothingDescribedAddsNothing) {
    EXPECT_EQ(response_.addHeadersAndCookies(description_), 0U);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(EngineResponseTest, HeaderWithALineEndIsLeftOutAndLogged) {
    description_.headers = {{"1", {"X-Split", "a\r\nX-Injected: b"}}, {"2", {"X-Good", "c"}}};
    description_.cookies = {{"id", "1\nX-Injected: b"}};
    response_.addHeadersAndCookies(description_);
    EXPECT_THAT(lines(), ElementsAre(Pair("X-Good", "c")));
    EXPECT_THAT(log_.lines(),
                ElementsAre(TestLog::Line{qlLogType::Engine, "httpserver", "Dropping response header 'X-Split'"},
                            TestLog::Line{qlLogType::Engine, "httpserver", "Dropping response header 'Set-cookie'"}));
}

TEST_F(EngineResponseTest, NameThatIsLeftOutCannotBeginALineOfTheLog) {
    response_.addHeader("X-A\n[5] all is lost\x1B", "value");
    EXPECT_THAT(log_.lines(), ElementsAre(TestLog::Line{qlLogType::Engine, "httpserver",
                                                        "Dropping response header 'X-A [5] all is lost '"}));
}

TEST_F(EngineResponseTest, MissingEngineResponseIsNotQueued) {
    EngineResponse none(nullptr);
    none.addHeader("Name", "value");
    EXPECT_EQ(none.queue(ql::impl::EngineConnection(nullptr), 200), ql::impl::Verdict::Close);
}

// ---- Of strict HTTP ----

class CheckedResponseTest : public EngineResponseTest {
protected:
    TestLog::Line dropped(const std::string& rest) const {
        return TestLog::Line{qlLogType::Failure, "httpserver", "Dropping " + rest};
    }
};

TEST_F(CheckedResponseTest, WhatIsRightGoesOut) {
    description_.headers = {{"1", {"X-A", "a\tb \xC3\xA4"}}, {"2", {"Content-Type", "text/plain"}}};
    description_.cookies = {{"a", "b; Path=/; Expires=Thu, 01 Jan 1970 00:00:00 GMT"}, {"c", "\"d\""}};
    EXPECT_EQ(response_.addCheckedHeadersAndCookies(description_),
              3U + 6U + 3U + 12U + 10U + 3U + 1U + 48U + 15U + 1U + 3U + 15U);
    EXPECT_THAT(lines(), ElementsAre(Pair("X-A", "a\tb \xC3\xA4"), Pair("Content-Type", "text/plain"),
                                     Pair("Set-Cookie", "a=b; Path=/; Expires=Thu, 01 Jan 1970 00:00:00 GMT"),
                                     Pair("Set-Cookie", "c=\"d\"")));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CheckedResponseTest, HeaderWhoseNameIsNoneIsLeftOut) {
    description_.headers = {{"1", {"X A", "a"}}, {"2", {"", "a"}}, {"3", {"X:", "a"}}};
    response_.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(lines(), IsEmpty());
    const TestLog::Line line = dropped("response header '?' : its name is none");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line, line));
}

TEST_F(CheckedResponseTest, HeaderWithControlCharactersIsLeftOut) {
    description_.headers = {
        {"1", {"X-A", "a\x01"}}, {"2", {"X-B", "a\r\nX: b"}}, {"3", {"X-C", std::string("a\0b", 3)}}};
    response_.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre(dropped("response header 'X-A' : its value has control characters"),
                                          dropped("response header 'X-B' : its value has control characters"),
                                          dropped("response header 'X-C' : its value has control characters")));
}

TEST_F(CheckedResponseTest, CodingIsLeftOut) {
    description_.headers = {{"1", {"transfer-encoding", "chunked"}}};
    response_.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_THAT(log_.lines(),
                ElementsAre(dropped("response header 'transfer-encoding' : the coding is the library's")));
}

TEST_F(CheckedResponseTest, LengthIsTheAnswersOwnOrIsLeftOut) {
    EngineResponse response(MHD_create_response_from_buffer(0, empty_.data(), MHD_RESPMEM_PERSISTENT), 0, 5);
    description_.headers = {{"1", {"Content-Length", "5"}}};
    response.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(log_.lines(), IsEmpty());
    description_.headers = {{"1", {"content-length", "6"}}};
    response.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(log_.lines(),
                ElementsAre(dropped("response header 'content-length' : the length of the answer is another one")));
}

TEST_F(CheckedResponseTest, LengthOfAnAnswerThatHasNoneIsLeftOut) {
    description_.headers = {{"1", {"Content-Length", "0"}}};
    response_.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(log_.lines(),
                ElementsAre(dropped("response header 'Content-Length' : the length of the answer is another one")));
}

TEST_F(CheckedResponseTest, HeaderThatMayBeThereOnceIs) {
    description_.headers = {
        {"1", {"Content-Type", "a"}}, {"2", {"content-type", "b"}}, {"3", {"Vary", "c"}}, {"4", {"Vary", "d"}}};
    response_.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(lines(), ElementsAre(Pair("Content-Type", "a"), Pair("Vary", "c"), Pair("Vary", "d")));
    EXPECT_THAT(log_.lines(), ElementsAre(dropped("response header 'content-type' : there is one already")));
}

TEST_F(CheckedResponseTest, CookieThatIsNoneIsLeftOut) {
    description_.cookies = {{"a b", "c"}, {"d", "e f"}, {"g", "\xC3\xA4"}, {"h", "i; Path=\x01"}, {"j", "k"}};
    response_.addCheckedHeadersAndCookies(description_);
    EXPECT_THAT(lines(), ElementsAre(Pair("Set-Cookie", "j=k")));
    EXPECT_THAT(log_.lines(), ElementsAre(dropped("cookie '?' : its name is none"),
                                          dropped("cookie 'd' : its value has forbidden characters"),
                                          dropped("cookie 'g' : its value has forbidden characters"),
                                          dropped("cookie 'h' : its value has forbidden characters")));
}

} // namespace
