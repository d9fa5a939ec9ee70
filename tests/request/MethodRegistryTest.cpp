#include "vireo/HttpBaseRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using ql::HttpBaseRequest;
using RequestType = HttpBaseRequest::RequestType;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const std::vector<std::pair<int, std::string>> TokenOfValue{
    {2, "OPTIONS"}, {4, "GET"},       {8, "POST"},    {16, "PUT"},    {32, "DELETE"},
    {64, "HEAD"},   {128, "CONNECT"}, {256, "TRACE"}, {512, "PATCH"}, {1024, "QUERY"},
};

RequestType typeOf(int value) {
    return static_cast<RequestType>(value);
}

std::string textOf(int value) {
    return HttpBaseRequest::RequestTypeToString(typeOf(value));
}

class MethodRegistryTest : public testing::Test {
protected:
    ~MethodRegistryTest() override { HttpBaseRequest::ClearRequestTypes(); }
};

TEST_F(MethodRegistryTest, IsEmptyBeforeItIsFilled) {
    EXPECT_THAT(HttpBaseRequest::sRequestTypes, IsEmpty());
}

TEST_F(MethodRegistryTest, HoldsExactlyTheTenMethods) {
    HttpBaseRequest::InitRequestTypes();
    EXPECT_THAT(HttpBaseRequest::sRequestTypes,
                ElementsAre(Pair("CONNECT", typeOf(128)), Pair("DELETE", typeOf(32)), Pair("GET", typeOf(4)),
                            Pair("HEAD", typeOf(64)), Pair("OPTIONS", typeOf(2)), Pair("PATCH", typeOf(512)),
                            Pair("POST", typeOf(8)), Pair("PUT", typeOf(16)), Pair("QUERY", typeOf(1024)),
                            Pair("TRACE", typeOf(256))));
}

TEST_F(MethodRegistryTest, FillingTwiceLeavesTheSameRows) {
    HttpBaseRequest::InitRequestTypes();
    const HttpBaseRequest::RequestTypes once = HttpBaseRequest::sRequestTypes;
    HttpBaseRequest::InitRequestTypes();
    EXPECT_EQ(HttpBaseRequest::sRequestTypes, once);
}

TEST_F(MethodRegistryTest, FillingRemovesForeignRows) {
    HttpBaseRequest::sRequestTypes["BREW"] = RequestType::Get;
    HttpBaseRequest::InitRequestTypes();
    EXPECT_EQ(HttpBaseRequest::sRequestTypes.count("BREW"), 0U);
}

TEST_F(MethodRegistryTest, FillingCorrectsAChangedRow) {
    HttpBaseRequest::InitRequestTypes();
    HttpBaseRequest::sRequestTypes["GET"] = RequestType::Post;
    HttpBaseRequest::InitRequestTypes();
    EXPECT_EQ(HttpBaseRequest::sRequestTypes.at("GET"), RequestType::Get);
}

TEST_F(MethodRegistryTest, ClearingRemovesEveryRow) {
    HttpBaseRequest::InitRequestTypes();
    HttpBaseRequest::ClearRequestTypes();
    EXPECT_THAT(HttpBaseRequest::sRequestTypes, IsEmpty());
}

TEST_F(MethodRegistryTest, CanBeFilledAgainAfterClearing) {
    HttpBaseRequest::InitRequestTypes();
    HttpBaseRequest::ClearRequestTypes();
    HttpBaseRequest::InitRequestTypes();
    EXPECT_EQ(HttpBaseRequest::sRequestTypes.size(), 10U);
}

TEST_F(MethodRegistryTest, EachMethodHasItsToken) {
    for (const auto& [value, token] : TokenOfValue) {
        EXPECT_EQ(textOf(value), token);
    }
}

TEST_F(MethodRegistryTest, EverythingButOneMethodIsUnknown) {
    for (const int value : {0, 1, 3, 12, 2046, 2047, 2048, 65535}) {
        EXPECT_EQ(textOf(value), "UNKNOWN_HTTP_METHOD") << value;
    }
}

TEST_F(MethodRegistryTest, TokensAreTheSameObjectsEachTime) {
    for (const RequestType type : {RequestType::Get, RequestType::Query, RequestType::Unknown}) {
        EXPECT_EQ(&HttpBaseRequest::RequestTypeToString(type), &HttpBaseRequest::RequestTypeToString(type));
    }
    EXPECT_EQ(&HttpBaseRequest::RequestTypeToString(typeOf(0)),
              &HttpBaseRequest::RequestTypeToString(RequestType::Unknown));
}

TEST_F(MethodRegistryTest, SetIsNamedInTheFixedOrder) {
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(2 | 4), "GET, OPTIONS");
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(2047),
              "GET, POST, PUT, DELETE, OPTIONS, HEAD, CONNECT, TRACE, PATCH, QUERY, UNKNOWN_HTTP_METHOD");
}

TEST_F(MethodRegistryTest, SetOfOneMethodIsItsToken) {
    for (const auto& [value, token] : TokenOfValue) {
        EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(value), token);
    }
}

TEST_F(MethodRegistryTest, UnknownComesLastInASet) {
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(1), "UNKNOWN_HTTP_METHOD");
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(1 | 1024), "QUERY, UNKNOWN_HTTP_METHOD");
}

TEST_F(MethodRegistryTest, EmptySetIsTheEmptyText) {
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(0), "");
}

TEST_F(MethodRegistryTest, BitsAboveTheLastMethodAreIgnored) {
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(2048), "");
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(4 | 2048 | 65536), "GET");
    EXPECT_EQ(HttpBaseRequest::RequestTypeBitFieldToString(-1), HttpBaseRequest::RequestTypeBitFieldToString(2047));
}

TEST_F(MethodRegistryTest, TypesAre16BitsWide) {
    static_assert(sizeof(RequestType) == 2);
    static_assert(std::is_same_v<std::underlying_type_t<RequestType>, std::uint16_t>);
    EXPECT_EQ(static_cast<int>(RequestType::Unknown), 1);
}

} // namespace
