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

TEST_F(EngineResponseTest, MissingEngineResponseIsNotQueued) {
    EngineResponse none(nullptr);
    none.addHeader("Name", "value");
    EXPECT_EQ(none.queue(ql::impl::EngineConnection(nullptr), 200), ql::impl::Verdict::Close);
}

} // namespace
