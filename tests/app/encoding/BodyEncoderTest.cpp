#include "app/encoding/Brotli.h"
#include "app/encoding/Gzip.h"

#include "app/encoding/Decoded.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using namespace encodingtest;
using vireo::impl::BodyEncoder;

namespace {

struct Coding {
    const char* name;
    std::function<std::unique_ptr<BodyEncoder>(int)> make;
    std::function<std::string(std::string_view, bool*)> decode;
    std::vector<int> levels;
};

std::vector<Coding> codings() {
    std::vector<Coding> all;
    all.push_back(
        {"gzip", [](int level) { return std::make_unique<vireo::impl::GzipEncoder>(level); }, decodedGzip, {1, 6, 9}});
#ifdef HAS_BROTLI_DECODER
    all.push_back({"br", vireo::impl::makeBrotliEncoder, decodedBrotli, {0, 4, 11}});
#endif
    return all;
}

class BodyEncoders : public testing::TestWithParam<Coding> {};

std::string randomBytes(std::size_t count, unsigned int seed) {
    std::mt19937 random(seed);
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

/// Words in random order.
std::string prose(std::size_t count, unsigned int seed) {
    static constexpr const char* Words[] = {"harbour ", "and ", "lantern ", "the ",
                                            "under\n",  "of ",  "sail ",    "north "};
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < count) {
        text += Words[random() % 8];
    }
    text.resize(count);
    return text;
}

} // namespace

TEST_P(BodyEncoders, WholeBodyIsDecodedAsItWas) {
    for (const int level : GetParam().levels) {
        for (const std::size_t size : {500U, 16384U, 300000U}) {
            const std::string body = prose(size, 1);
            const std::optional<std::string> encoded = GetParam().make(level)->whole(body);
            ASSERT_TRUE(encoded) << level << " " << size;
            EXPECT_LT(encoded->size(), body.size());
            bool isWhole = false;
            EXPECT_EQ(GetParam().decode(*encoded, &isWhole), body);
            EXPECT_TRUE(isWhole);
        }
    }
}

TEST_P(BodyEncoders, BodyThatDoesNotGetSmallerIsLeft) {
    for (const std::size_t size : {0U, 1U, 20U, 5000U}) {
        EXPECT_FALSE(GetParam().make(GetParam().levels.front())->whole(randomBytes(size, 2)));
    }
}

TEST_P(BodyEncoders, PiecesAreDecodedAsTheyWereForAnySplit) {
    const std::string body = prose(600, 3);
    for (std::size_t split = 0; split <= body.size(); ++split) {
        for (const bool flush : {false, true}) {
            const std::unique_ptr<BodyEncoder> encoder = GetParam().make(GetParam().levels.front());
            std::string out;
            encoder->piece(std::string_view(body).substr(0, split), flush, out);
            if (flush) {
                ASSERT_EQ(GetParam().decode(out, nullptr), body.substr(0, split));
            }
            encoder->piece(std::string_view(body).substr(split), false, out);
            encoder->end(out);
            bool isWhole = false;
            ASSERT_EQ(GetParam().decode(out, &isWhole), body);
            ASSERT_TRUE(isWhole);
        }
    }
}

TEST_P(BodyEncoders, FlushLetsTheClientSeeAllThatWasWritten) {
    std::mt19937 random(4);
    const std::unique_ptr<BodyEncoder> encoder = GetParam().make(GetParam().levels[1]);
    std::string body;
    std::string out;
    for (unsigned int i = 0; i < 100; ++i) {
        const std::size_t size = random() % 20000;
        const std::string piece = i % 3 == 0 ? randomBytes(size, i) : prose(size, i);
        const bool flush = random() % 2 == 0;
        encoder->piece(piece, flush, out);
        body += piece;
        if (flush) {
            ASSERT_EQ(GetParam().decode(out, nullptr), body);
        }
    }
    encoder->end(out);
    bool isWhole = false;
    EXPECT_EQ(GetParam().decode(out, &isWhole), body);
    EXPECT_TRUE(isWhole);
}

TEST_P(BodyEncoders, FlushWithoutAnythingNewChangesNothing) {
    const std::unique_ptr<BodyEncoder> encoder = GetParam().make(GetParam().levels[1]);
    std::string out;
    encoder->piece({}, true, out);
    encoder->piece("abc", true, out);
    encoder->piece({}, true, out);
    EXPECT_EQ(GetParam().decode(out, nullptr), "abc");
    encoder->end(out);
    bool isWhole = false;
    EXPECT_EQ(GetParam().decode(out, &isWhole), "abc");
    EXPECT_TRUE(isWhole);
}

TEST_P(BodyEncoders, TwoOnOneThreadKeepTheirBodiesApart) {
    const std::string left = prose(50000, 5);
    const std::string right = prose(50000, 6);
    const std::unique_ptr<BodyEncoder> leftEncoder = GetParam().make(GetParam().levels[1]);
    const std::unique_ptr<BodyEncoder> rightEncoder = GetParam().make(GetParam().levels[1]);
    std::string leftOut;
    std::string rightOut;
    for (std::size_t i = 0; i < left.size(); i += 1000) {
        leftEncoder->piece(std::string_view(left).substr(i, 1000), false, leftOut);
        rightEncoder->piece(std::string_view(right).substr(i, 1000), true, rightOut);
    }
    leftEncoder->end(leftOut);
    rightEncoder->end(rightOut);
    EXPECT_EQ(GetParam().decode(leftOut, nullptr), left);
    EXPECT_EQ(GetParam().decode(rightOut, nullptr), right);
}

TEST_P(BodyEncoders, NothingIsLeftOfOneThatWentUnfinished) {
    const std::string body = prose(5000, 7);
    for (const int level : GetParam().levels) {
        std::string dropped;
        GetParam().make(GetParam().levels[1])->piece(prose(3000, 8), false, dropped);
        std::string out;
        const std::unique_ptr<BodyEncoder> encoder = GetParam().make(level);
        encoder->piece(body, false, out);
        encoder->end(out);
        EXPECT_EQ(GetParam().decode(out, nullptr), body);
    }
}

INSTANTIATE_TEST_SUITE_P(, BodyEncoders, testing::ValuesIn(codings()),
                         [](const testing::TestParamInfo<Coding>& coding) { return std::string(coding.param.name); });
