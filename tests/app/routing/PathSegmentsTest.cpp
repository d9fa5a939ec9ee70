#include "app/routing/PathSegments.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

using vireo::impl::PathFault;
using vireo::impl::splitPath;

struct Split {
    PathFault fault;
    std::vector<std::string> segments;
};

Split split(std::string_view path) {
    std::string decoded;
    std::vector<std::string_view> segments;
    const PathFault fault = splitPath(path, decoded, segments);
    return {fault, {segments.begin(), segments.end()}};
}

std::vector<std::string> segmentsOf(std::string_view path) {
    const Split result = split(path);
    EXPECT_EQ(result.fault, PathFault::None) << path;
    return result.segments;
}

using Texts = std::vector<std::string>;

TEST(PathSegments, EachSlashBeginsOne) {
    EXPECT_EQ(segmentsOf("/"), Texts({""}));
    EXPECT_EQ(segmentsOf("/a"), Texts({"a"}));
    EXPECT_EQ(segmentsOf("/a/"), Texts({"a", ""}));
    EXPECT_EQ(segmentsOf("//a//b"), Texts({"", "a", "", "b"}));
}

TEST(PathSegments, WhatIsNoPathHasNone) {
    EXPECT_EQ(segmentsOf("*"), Texts());
    EXPECT_EQ(segmentsOf(""), Texts());
}

TEST(PathSegments, EscapesAreDecodedOnceAndAfterTheSplit) {
    EXPECT_EQ(segmentsOf("/a%2Fb/%25%32%66"), Texts({"a/b", "%2f"}));
    EXPECT_EQ(segmentsOf("/caf%C3%A9/%7e+"), Texts({"caf\xC3\xA9", "~+"}));
}

TEST(PathSegments, ManyEscapedOnesStayWhereTheyAre) {
    std::string path;
    Texts expected;
    for (int i = 0; i < 1000; ++i) {
        path += "/%41" + std::to_string(i);
        expected.push_back("A" + std::to_string(i));
    }
    EXPECT_EQ(segmentsOf(path), expected);
}

TEST(PathSegments, BadPathsSayWhy) {
    for (const std::string_view path : {"/%", "/%4", "/%4/1", "/a%g1", "/%zz", "/a/%%41"}) {
        EXPECT_EQ(split(path).fault, PathFault::BadEscape) << path;
    }
    EXPECT_EQ(split("/a%00b").fault, PathFault::Nul);
    for (const std::string_view path : {"/%FF", "/%C3", "/%C3/%A9", "/%ED%A0%80", "/%C0%AF"}) {
        EXPECT_EQ(split(path).fault, PathFault::NotUtf8) << path;
    }
    for (const std::string_view path : {"/.", "/..", "/a/./b", "/a/../b", "/%2e", "/%2E%2e/x", "/x/.%2E", "/..%2Fa",
                                        "/a%2F..", "/x/a%2f.%2Fb", "/..%5Ca", "/..\\a", "/a%5c..%2fb", "/%2F.."}) {
        EXPECT_EQ(split(path).fault, PathFault::DotSegment) << path;
    }
}

TEST(PathSegments, DotsThatAreNoSegmentAreText) {
    EXPECT_EQ(segmentsOf("/.../.a/a../..b"), Texts({"...", ".a", "a..", "..b"}));
    EXPECT_EQ(segmentsOf("/a%2F...%2Fb/a..%2F..b/%2f%5C"), Texts({"a/.../b", "a../..b", "/\\"}));
}

} // namespace
