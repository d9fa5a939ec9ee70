#include "engine/PartGatherer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using ql::impl::FormPiece;
using ql::impl::PartGatherer;

/// The pieces as a text: "[name|file name|type]bytes", a file with "file" in front of its name.
std::string take(PartGatherer& gatherer) {
    std::string text;
    for (const FormPiece& piece : gatherer.take()) {
        text += piece.isPart ? "[" + piece.name + "|" + (piece.isFile ? "file " : "") + piece.fileName + "|" +
                                   piece.contentType + "]"
                             : piece.bytes + ";";
    }
    return text;
}

TEST(PartGatherer, BytesOfAPartAreOnePieceUntilTheyAreTaken) {
    PartGatherer gatherer(false);
    EXPECT_TRUE(gatherer.add("a", nullptr, nullptr, "", 0));
    EXPECT_TRUE(gatherer.add("a", nullptr, nullptr, "12", 0));
    EXPECT_TRUE(gatherer.add("a", nullptr, nullptr, "3", 2));
    EXPECT_EQ(take(gatherer), "[a||]123;");
    EXPECT_TRUE(gatherer.add("a", nullptr, nullptr, "4", 3));
    EXPECT_EQ(take(gatherer), "4;");
    EXPECT_EQ(take(gatherer), "");
}

TEST(PartGatherer, PartBeginsBehindASeparatorThoughItLooksLikeTheOneBefore) {
    PartGatherer gatherer(false);
    EXPECT_TRUE(gatherer.add("a", nullptr, nullptr, "", 0));
    gatherer.separate();
    gatherer.separate();
    EXPECT_TRUE(gatherer.add("a", nullptr, nullptr, "1", 0));
    EXPECT_EQ(take(gatherer), "[a||][a||]1;");
}

TEST(PartGatherer, FirstPartOfAMultipartBodyNeedsASeparator) {
    PartGatherer without(true);
    EXPECT_FALSE(without.add("a", nullptr, nullptr, "", 0));
    PartGatherer with(true);
    with.separate();
    EXPECT_TRUE(with.add("a", "f", "t", "x", 0));
    EXPECT_EQ(take(with), "[a|file f|t]x;");
}

TEST(PartGatherer, PartInsideAPartIsMalformed) {
    PartGatherer gatherer(true);
    gatherer.separate();
    EXPECT_TRUE(gatherer.add("a", "f", nullptr, "x", 0));
    EXPECT_FALSE(gatherer.add("a", "g", nullptr, "y", 0));
    gatherer.separate();
    EXPECT_FALSE(gatherer.add("a", "g", nullptr, "y", 5));
}

TEST(PartGatherer, PartWithoutANameIsMalformed) {
    EXPECT_FALSE(PartGatherer(false).add(nullptr, nullptr, nullptr, "x", 0));
    EXPECT_FALSE(PartGatherer(false).add("", nullptr, nullptr, "x", 0));
}

TEST(PartGatherer, EmptyFileNameIsAFile) {
    PartGatherer gatherer(false);
    EXPECT_TRUE(gatherer.add("a", "", nullptr, "", 0));
    EXPECT_EQ(take(gatherer), "[a|file |]");
}

TEST(PartGatherer, EscapesOfBrowsersAreDecodedInMultipartNames) {
    PartGatherer multipart(true);
    multipart.separate();
    EXPECT_TRUE(multipart.add("%22a%0D%0A%41%", "%22.txt%2", nullptr, "", 0));
    EXPECT_EQ(take(multipart), "[\"a\r\n%41%|file \".txt%2|]");
    PartGatherer urlEncoded(false);
    EXPECT_TRUE(urlEncoded.add("%22", nullptr, nullptr, "", 0));
    EXPECT_EQ(take(urlEncoded), "[%22||]");
}

TEST(PartGatherer, DirectoriesOfFileNamesAreCut) {
    for (const char* const name : {"a.txt", "/a.txt", "../x/a.txt", "C:\\x\\a.txt", "x/y\\a.txt"}) {
        PartGatherer gatherer(false);
        EXPECT_TRUE(gatherer.add("n", name, nullptr, "", 0));
        EXPECT_EQ(take(gatherer), "[n|file a.txt|]") << name;
    }
}

} // namespace
