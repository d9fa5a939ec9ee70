#include "app/kernel/Answer.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using vireo::impl::Answer;
using vireo::impl::AnswerHeaders;

namespace {

std::vector<std::string> linesOf(const AnswerHeaders& headers) {
    std::vector<std::string> lines;
    for (const auto& [key, line] : headers.asMap()) {
        lines.push_back(line.first + ": " + line.second);
    }
    return lines;
}

using Lines = std::vector<std::string>;

} // namespace

TEST(AnswerHeadersTest, AreInTheOrderInWhichTheyWereSet) {
    AnswerHeaders headers;
    for (int i = 0; i < 20; ++i) {
        headers.add("X-" + std::to_string(i), std::to_string(i));
    }
    const auto lines = linesOf(headers);
    ASSERT_EQ(lines.size(), 20U);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(lines[static_cast<std::size_t>(i)], "X-" + std::to_string(i) + ": " + std::to_string(i));
    }
}

TEST(AnswerHeadersTest, SetReplacesAllOfTheNameInAnyLetters) {
    AnswerHeaders headers;
    headers.add("Vary", "A");
    headers.add("vary", "B");
    headers.add("X", "1");
    headers.set("VARY", "C");
    EXPECT_EQ(linesOf(headers), (Lines{"X: 1", "VARY: C"}));
    headers.remove("vary");
    EXPECT_EQ(headers.find("Vary"), nullptr);
}

TEST(AnswerHeadersTest, ACookieReplacesThatOfItsNameAlone) {
    AnswerHeaders headers;
    headers.setCookie("a", "a=1");
    headers.setCookie("ab", "ab=2; Path=/");
    headers.setCookie("a", "a=3");
    EXPECT_EQ(linesOf(headers), (Lines{"Set-Cookie: ab=2; Path=/", "Set-Cookie: a=3"}));
}

TEST(AnswerTest, TheLastBodyHasItsOwnType) {
    Answer answer;
    answer.setText("1", "text/plain");
    answer.setText("2", "text/html");
    EXPECT_EQ(linesOf(answer.headers), (Lines{"Content-Type: text/html"}));
    answer.headers.set("Content-Type", "text/mine");
    answer.isTypeOfBody = false;
    answer.setText("3", "text/plain");
    EXPECT_EQ(linesOf(answer.headers), (Lines{"Content-Type: text/mine"}));
}

TEST(AnswerTest, WhatCameWithAFileGoesWithIt) {
    for (const auto& [status, left] : {std::pair(206, 200), {304, 200}, {404, 404}}) {
        Answer answer;
        answer.status = status;
        answer.headers.set("X", "1");
        for (const char* const name :
             {"ETag", "Last-Modified", "Accept-Ranges", "Content-Range", "Content-Encoding", "Content-Disposition"}) {
            answer.headers.set(name, "x");
        }
        answer.isOfFile = true;
        answer.isSet = true;
        answer.dropBody();
        EXPECT_EQ(answer.status, left);
        EXPECT_EQ(linesOf(answer.headers), (Lines{"X: 1"}));
        EXPECT_FALSE(answer.isSet);
        // What a handler has set stays.
        answer.status = status;
        answer.headers.set("ETag", "x");
        answer.dropBody();
        EXPECT_EQ(answer.status, status);
        EXPECT_EQ(linesOf(answer.headers), (Lines{"X: 1", "ETag: x"}));
    }
}

TEST(AnswerTest, AnErrorKeepsNothingButHooks) {
    Answer answer;
    answer.setText("{}", "application/json");
    answer.headers.add("ETag", "\"1\"");
    answer.headers.setCookie("a", "a=1");
    answer.status = 201;
    answer.hooks.emplace_back([](vireo::Response&) {});
    answer.setError(404, "no such note");
    EXPECT_EQ(answer.status, 404);
    EXPECT_EQ(answer.body, "no such note\n");
    EXPECT_EQ(linesOf(answer.headers), Lines{"Content-Type: text/plain; charset=utf-8"});
    EXPECT_EQ(answer.hooks.size(), 1U);
}
