#include "vireo/WebSocketAnswer.h"

#include "session/AnswerData.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/WebSocketPool.h"
#include "vireo/WebSocketSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <utility>

namespace {

using ql::http::WebSocketAnswer;
using ql::http::WebSocketOptions;
using ql::http::WebSocketSession;
using ql::impl::AnswerData;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Kind = AnswerData::Kind;

TEST(WebSocketAnswer, AcceptsWithASession) {
    WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<WebSocketSession>());
    EXPECT_EQ(AnswerData::of(answer).kind, Kind::Accept);
    EXPECT_NE(AnswerData::of(answer).session, nullptr);
    EXPECT_THROW(WebSocketAnswer::Accept(nullptr), std::invalid_argument);
}

TEST(WebSocketAnswer, RefusesWithAStatusThatRefuses) {
    WebSocketAnswer answer = WebSocketAnswer::Refuse(401, "who are you?\n");
    EXPECT_EQ(AnswerData::of(answer).kind, Kind::Refuse);
    EXPECT_EQ(AnswerData::of(answer).status, 401U);
    EXPECT_EQ(AnswerData::of(answer).body, "who are you?\n");
    EXPECT_THROW(WebSocketAnswer::Refuse(200), std::invalid_argument);
    EXPECT_THROW(WebSocketAnswer::Refuse(299), std::invalid_argument);
    EXPECT_THROW(WebSocketAnswer::Refuse(600), std::invalid_argument);
    EXPECT_NO_THROW(WebSocketAnswer::Refuse(300));
    EXPECT_NO_THROW(WebSocketAnswer::Refuse(599));
}

TEST(WebSocketAnswer, PassesOn) {
    WebSocketAnswer answer = WebSocketAnswer::Pass();
    EXPECT_EQ(AnswerData::of(answer).kind, Kind::Pass);
}

TEST(WebSocketAnswer, TakesItsPartsAlongWhenItIsMoved) {
    WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<WebSocketSession>());
    answer.setSubprotocol("chat");
    WebSocketOptions options;
    options.setMaxMessageBytes(7);
    answer.setOptions(options);
    answer.addHeader("Set-Cookie", "a=b");
    answer.addHeader("Set-Cookie", "c=d");
    WebSocketAnswer moved = std::move(answer);
    const AnswerData& data = AnswerData::of(moved);
    EXPECT_EQ(data.subprotocol, "chat");
    ASSERT_NE(data.settings, nullptr);
    EXPECT_EQ(data.settings->maxMessageBytes, 7U);
    EXPECT_THAT(data.headers, ElementsAre(Pair("Set-Cookie", "a=b"), Pair("Set-Cookie", "c=d")));
}

TEST(WebSocketAnswer, KeepsNoPoolForItsSession) {
    const auto pool = std::make_shared<ql::http::WebSocketPool>(1);
    WebSocketOptions options;
    options.setPool(pool);
    WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<WebSocketSession>());
    answer.setOptions(options);
    EXPECT_EQ(AnswerData::of(answer).settings->pool, nullptr);
}

TEST(WebSocketAnswer, HasNoHeaderThatIsNone) {
    WebSocketAnswer answer = WebSocketAnswer::Refuse(403);
    EXPECT_THROW(answer.addHeader("", "a"), std::invalid_argument);
    EXPECT_THROW(answer.addHeader("a b", "a"), std::invalid_argument);
    EXPECT_THROW(answer.addHeader("A", "a\r\nB: b"), std::invalid_argument);
    EXPECT_THAT(AnswerData::of(answer).headers, IsEmpty());
}

TEST(WebSocketAnswer, LeavesTheHeadersOfTheLibraryToIt) {
    WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<WebSocketSession>());
    for (const char* const name :
         {"Connection", "upgrade", "Content-Length", "transfer-encoding", "Sec-WebSocket-Accept",
          "sec-websocket-protocol", "Sec-WebSocket-Extensions", "Sec-WebSocket-Anything"}) {
        EXPECT_THROW(answer.addHeader(name, "a"), std::invalid_argument) << name;
    }
    EXPECT_THAT(AnswerData::of(answer).headers, IsEmpty());
    EXPECT_NO_THROW(answer.addHeader("Sec-WebSocket", "a"));
}

} // namespace
