#include "vireo/support/HashHelper.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

std::string hex(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text.push_back("0123456789abcdef"[byte >> 4U]);
        text.push_back("0123456789abcdef"[byte & 0xFU]);
    }
    return text;
}

std::string digestOf(ql::HashType type, const std::string& message) {
    ql::HashHelper helper(type);
    std::string digest(helper.getDigestLength(), '\0');
    helper.hash(message.data(), message.size(), digest.data(), digest.size());
    return hex(digest);
}

const std::string TwoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string Sha1OfAbc = "a9993e364706816aba3e25717850c26c9cd0d89d";

TEST(HashHelper, Sha1MatchesTheStandardsVectors) {
    EXPECT_EQ(digestOf(ql::HashType::Sha1, "abc"), Sha1OfAbc);
    EXPECT_EQ(digestOf(ql::HashType::Sha1, TwoBlocks), "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(digestOf(ql::HashType::Sha1, ""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(HashHelper, Sha256MatchesTheStandardsVectors) {
    EXPECT_EQ(digestOf(ql::HashType::Sha256, "abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digestOf(ql::HashType::Sha256, TwoBlocks),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(digestOf(ql::HashType::Sha256, ""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(HashHelper, Sha512MatchesTheStandardsVectors) {
    EXPECT_EQ(digestOf(ql::HashType::Sha512, "abc"),
              "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
              "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
    EXPECT_EQ(digestOf(ql::HashType::Sha512, ""), "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
                                                  "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
}

TEST(HashHelper, TheNumberThreeMeansSha1) {
    EXPECT_EQ(static_cast<ql::HashType>(3), ql::HashType::Sha1);
    EXPECT_EQ(digestOf(static_cast<ql::HashType>(3), "abc"), Sha1OfAbc);
}

TEST(HashHelper, DigestLengths) {
    EXPECT_EQ(ql::HashHelper(ql::HashType::Sha1).getDigestLength(), 20U);
    EXPECT_EQ(ql::HashHelper(ql::HashType::Sha256).getDigestLength(), 32U);
    EXPECT_EQ(ql::HashHelper(ql::HashType::Sha512).getDigestLength(), 64U);
}

TEST(HashHelper, LongerBufferKeepsItsRest) {
    ql::HashHelper helper(ql::HashType::Sha1);
    std::string out(32, 'x');
    helper.hash("abc", 3, out.data(), out.size());
    EXPECT_EQ(hex(out.substr(0, 20)), Sha1OfAbc);
    EXPECT_EQ(out.substr(20), std::string(12, 'x'));
}

TEST(HashHelper, ShorterBufferReceivesTheBeginning) {
    ql::HashHelper helper(ql::HashType::Sha1);
    std::string out(20, 'x');
    helper.hash("abc", 3, out.data(), 19);
    EXPECT_EQ(hex(out.substr(0, 19)), Sha1OfAbc.substr(0, 38));
    EXPECT_EQ(out[19], 'x');
}

TEST(HashHelper, EmptyBufferMayBeNull) {
    ql::HashHelper helper(ql::HashType::Sha1);
    EXPECT_NO_THROW(helper.hash("abc", 3, nullptr, 0));
    EXPECT_NO_THROW(helper.finish(nullptr, 0));
}

TEST(HashHelper, AddedPiecesMakeOneMessage) {
    ql::HashHelper helper(ql::HashType::Sha256);
    for (const char c : TwoBlocks) {
        helper.addData(&c, 1);
    }
    helper.addData(nullptr, 0);
    std::string out(32, '\0');
    helper.finish(out.data(), out.size());
    EXPECT_EQ(hex(out), digestOf(ql::HashType::Sha256, TwoBlocks));
}

TEST(HashHelper, FinishStartsANewMessage) {
    ql::HashHelper helper(ql::HashType::Sha1);
    std::string out(20, '\0');
    helper.addData("other", 5);
    helper.finish(out.data(), out.size());
    helper.addData("abc", 3);
    helper.finish(out.data(), out.size());
    EXPECT_EQ(hex(out), Sha1OfAbc);
}

TEST(HashHelper, FinishWithoutDataIsTheDigestOfNothing) {
    ql::HashHelper helper(ql::HashType::Sha1);
    std::string out(20, '\0');
    helper.finish(out.data(), out.size());
    EXPECT_EQ(hex(out), digestOf(ql::HashType::Sha1, ""));
}

TEST(HashHelper, HashLeavesABegunMessageAlone) {
    ql::HashHelper helper(ql::HashType::Sha1);
    std::string out(20, '\0');
    helper.addData("ab", 2);
    helper.hash("abc", 3, out.data(), out.size());
    EXPECT_EQ(hex(out), Sha1OfAbc);
    helper.addData("c", 1);
    helper.finish(out.data(), out.size());
    EXPECT_EQ(hex(out), Sha1OfAbc);
}

TEST(HashHelper, UnknownDigestThrows) {
    EXPECT_THROW(ql::HashHelper(static_cast<ql::HashType>(0)), std::runtime_error);
    EXPECT_THROW(ql::HashHelper(static_cast<ql::HashType>(4)), std::runtime_error);
}

} // namespace
