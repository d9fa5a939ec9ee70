#include "app/encoding/CompressionRules.h"

#include "app/encoding/AnswerEncoding.h"
#include "app/encoding/Decoded.h"
#include "app/kernel/Answer.h"
#include "vireo/app/Compression.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

using vireo::impl::Answer;
using vireo::impl::CompressionRules;
using vireo::impl::encodeWhole;
using vireo::impl::offerEncoding;

namespace {

Answer textAnswer(std::size_t size = 2000) {
    Answer answer;
    answer.body.assign(size, 'a');
    answer.headers.set("Content-Type", "text/plain; charset=utf-8");
    answer.isSet = true;
    return answer;
}

std::string headerOf(const Answer& answer, const char* name) {
    const std::string* value = answer.headers.find(name);
    return value ? *value : "";
}

bool isOffered(Answer& answer, const CompressionRules& rules = {}) {
    offerEncoding(rules, "gzip", answer);
    EXPECT_EQ(headerOf(answer, "Vary").empty(), !answer.encoder);
    return answer.encoder != nullptr;
}

} // namespace

TEST(CompressionRules, CompressesWhatIsWorthIt) {
    Answer answer = textAnswer();
    const std::string body = answer.body;
    ASSERT_TRUE(isOffered(answer));
    encodeWhole(answer);
    EXPECT_EQ(headerOf(answer, "Content-Encoding"), "gzip");
    EXPECT_EQ(headerOf(answer, "Vary"), "Accept-Encoding");
    EXPECT_EQ(encodingtest::decodedGzip(answer.body), body);
    EXPECT_FALSE(answer.encoder);
}

TEST(CompressionRules, PlainAnswerSaysThatItDependsOnTheClient) {
    for (const char* coding : {"", "identity"}) {
        Answer answer = textAnswer();
        offerEncoding({}, coding, answer);
        EXPECT_FALSE(answer.encoder);
        EXPECT_EQ(headerOf(answer, "Vary"), "Accept-Encoding");
        encodeWhole(answer);
        EXPECT_EQ(answer.body, std::string(2000, 'a'));
        EXPECT_EQ(headerOf(answer, "Content-Encoding"), "");
    }
}

TEST(CompressionRules, VaryIsSaidOnce) {
    Answer other = textAnswer();
    other.headers.set("Vary", "Origin");
    ASSERT_TRUE(isOffered(other));
    EXPECT_EQ(other.headers.asMap().size(), 3);
    for (const char* vary : {"accept-encoding", "Origin,Accept-Encoding ", "*"}) {
        Answer answer = textAnswer();
        answer.headers.set("Vary", vary);
        ASSERT_TRUE(isOffered(answer));
        EXPECT_EQ(headerOf(answer, "Vary"), vary);
        EXPECT_EQ(answer.headers.asMap().size(), 2);
    }
}

TEST(CompressionRules, LeavesAnswersThatCannotBeEncoded) {
    for (const int status : {204, 205, 206, 304}) {
        Answer answer = textAnswer();
        answer.status = status;
        EXPECT_FALSE(isOffered(answer)) << status;
    }
    Answer encoded = textAnswer();
    encoded.headers.set("Content-Encoding", "zstd");
    EXPECT_FALSE(isOffered(encoded));
    Answer kept = textAnswer();
    kept.headers.set("Cache-Control", "public, no-transform");
    EXPECT_FALSE(isOffered(kept));
    Answer events = textAnswer();
    events.begin = [](auto, auto&) {};
    EXPECT_FALSE(isOffered(events));
    Answer untyped = textAnswer();
    untyped.headers.remove("Content-Type");
    EXPECT_FALSE(isOffered(untyped));
}

TEST(CompressionRules, LeavesShortBodiesButNotStreams) {
    Answer shorter = textAnswer(1023);
    EXPECT_FALSE(isOffered(shorter));
    Answer answer = textAnswer(1024);
    EXPECT_TRUE(isOffered(answer));
    Answer stream = textAnswer(0);
    stream.isStream = true;
    EXPECT_TRUE(isOffered(stream));
}

TEST(CompressionRules, ReadsFilesThatAreNeitherShortNorLong) {
    for (const auto& [size, isEncoded] :
         {std::pair(1023U, false), {1024U, true}, {1048576U, true}, {1048577U, false}}) {
        Answer answer = textAnswer(0);
        answer.file.emplace().size = size;
        EXPECT_EQ(isOffered(answer), isEncoded) << size;
    }
    Answer part = textAnswer(0);
    part.file.emplace().size = 2000;
    part.status = 206;
    EXPECT_FALSE(isOffered(part));
}

TEST(CompressionRules, FileThatCannotBeReadIsLeftAsItIs) {
    Answer answer = textAnswer(0);
    answer.file.emplace().size = 2000;
    ASSERT_TRUE(isOffered(answer));
    encodeWhole(answer);
    EXPECT_TRUE(answer.file);
    EXPECT_EQ(headerOf(answer, "Content-Encoding"), "");
}

TEST(CompressionRules, KnowsWhatGetsSmaller) {
    for (const char* type : {"text/html", "TEXT/HTML", "application/json", "application/problem+json; charset=utf-8",
                             "image/svg+xml", "application/wasm", "text/javascript"}) {
        Answer answer = textAnswer();
        answer.headers.set("Content-Type", type);
        EXPECT_TRUE(isOffered(answer)) << type;
    }
    for (const char* type : {"image/png", "video/mp4", "application/zip", "application/octet-stream",
                             "text/event-stream", "font/woff2", ""}) {
        Answer answer = textAnswer();
        answer.headers.set("Content-Type", type);
        EXPECT_FALSE(isOffered(answer)) << type;
    }
}

TEST(CompressionRules, TakesTypesOfTheApplication) {
    const auto options = vireo::CompressionOptions().addType("Application/X-Log").addType("model/*").minBytes(1);
    const CompressionRules& rules = CompressionRules::of(options);
    for (const char* type : {"application/x-log", "model/gltf"}) {
        Answer answer = textAnswer(100);
        answer.headers.set("Content-Type", type);
        EXPECT_TRUE(isOffered(answer, rules)) << type;
    }
    Answer other = textAnswer();
    other.headers.set("Content-Type", "application/x-logger");
    EXPECT_FALSE(isOffered(other, rules));
}

TEST(CompressionRules, BodyThatDidNotGetSmallerIsSentAsItIs) {
    Answer answer = textAnswer();
    answer.headers.set("ETag", "\"1\"");
    answer.body = "no repetition";
    ASSERT_TRUE(isOffered(answer, CompressionRules::of(vireo::CompressionOptions().minBytes(1))));
    encodeWhole(answer);
    EXPECT_EQ(answer.body, "no repetition");
    EXPECT_EQ(headerOf(answer, "Content-Encoding"), "");
    EXPECT_EQ(headerOf(answer, "ETag"), "\"1\"");
}

TEST(CompressionRules, TagOfWhatIsEncodedIsWeak) {
    for (const char* tag : {"\"1\"", "W/\"1\""}) {
        Answer answer = textAnswer();
        answer.headers.set("ETag", tag);
        ASSERT_TRUE(isOffered(answer));
        encodeWhole(answer);
        EXPECT_EQ(headerOf(answer, "ETag"), "W/\"1\"");
    }
}

TEST(CompressionOptions, RefuseWhatIsOutOfBounds) {
    vireo::CompressionOptions options;
    for (const int level : {0, 10}) {
        EXPECT_THROW(options.level(level), std::invalid_argument);
    }
    for (const int level : {-1, 12}) {
        EXPECT_THROW(options.brotliLevel(level), std::invalid_argument);
    }
    EXPECT_THROW(options.addType("json"), std::invalid_argument);
    options.level(1).level(9).brotliLevel(0).brotliLevel(11);
}
