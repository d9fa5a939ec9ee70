#include "request/LineIntake.h"

#include "support/FakeRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

using Fields = std::vector<std::pair<std::string_view, std::string_view>>;

class LineIntake : public testing::Test {
protected:
    LineIntake() { ql::HttpBaseRequest::InitRequestTypes(); }
    ~LineIntake() override { ql::HttpBaseRequest::ClearRequestTypes(); }

    void file(const Fields& fields, const std::optional<std::string>& authority = std::nullopt,
              std::string_view method = "GET") {
        std::vector<ql::HeaderLine> lines;
        for (const auto& [name, value] : fields) {
            lines.push_back({name, value});
        }
        ql::impl::fileLines(request_, method, "/a%20b?c=%64", std::move(lines), authority);
    }

    Fields lines() const {
        Fields filed;
        for (const ql::HeaderLine& line : request_.getHeaderLines()) {
            filed.emplace_back(line.name, line.value);
        }
        return filed;
    }

    FakeServerImpl application_;
    FakeRequest request_{application_};
};

TEST_F(LineIntake, NewOneHasNoLines) {
    EXPECT_THAT(request_.getHeaderLines(), IsEmpty());
}

TEST_F(LineIntake, LinesAreKeptAsTheyCame) {
    file({{"X-B", "2, \xFF\x01"}, {"x-b", ""}, {"A", "1"}, {"X-B", "3"}});
    EXPECT_THAT(lines(), ElementsAre(Pair("X-B", "2, \xFF\x01"), Pair("x-b", ""), Pair("A", "1"), Pair("X-B", "3")));
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(LineIntake, LinesOutliveWhatTheyWereMadeOf) {
    {
        const std::string name(100, 'n');
        const std::string value(100, 'v');
        file({{name, value}});
    }
    EXPECT_THAT(lines(), ElementsAre(Pair(std::string(100, 'n'), std::string(100, 'v'))));
}

TEST_F(LineIntake, ValuesAreWithoutTheBlanksAroundThem) {
    file({{"A", " \t b c\t "}, {"B", "  "}});
    EXPECT_THAT(lines(), ElementsAre(Pair("A", "b c"), Pair("B", "")));
}

TEST_F(LineIntake, MethodAndTargetAreKeptAndNothingIsParsed) {
    file({{"Host", "h.test"}, {"Cookie", "a=b"}});
    EXPECT_EQ(request_.getRequestType(), ql::HttpBaseRequest::RequestType::Get);
    EXPECT_EQ(request_.getMethodToken(), "GET");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a%20b?c=%64");
    EXPECT_FALSE(request_.getParsedUrl().isValid());
    EXPECT_THAT(request_.getHeaders().getAll(), IsEmpty());
    EXPECT_THAT(request_.getCookies(), IsEmpty());
    EXPECT_THAT(request_.getQueryParameters(), IsEmpty());
}

TEST_F(LineIntake, UnknownMethodIsNoParseError) {
    file({}, std::nullopt, "BREW");
    EXPECT_EQ(request_.getRequestType(), ql::HttpBaseRequest::RequestType::Unknown);
    EXPECT_EQ(request_.getMethodToken(), "BREW");
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(LineIntake, AuthorityStandsInPlaceOfHost) {
    file({{"A", "1"}, {"hOST", "h.test"}, {"B", "2"}}, "other.test:80");
    EXPECT_THAT(lines(), ElementsAre(Pair("A", "1"), Pair("hOST", "other.test:80"), Pair("B", "2")));
}

TEST_F(LineIntake, AuthorityIsHostWhereThereIsNone) {
    file({{"A", "1"}}, "other.test");
    EXPECT_THAT(lines(), ElementsAre(Pair("A", "1"), Pair("Host", "other.test")));
}

TEST_F(LineIntake, LinesAreCounted) {
    file({{"A", "123"}, {"BC", ""}});
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 1U + 3 + 3 + 2 + 3);
}

} // namespace
