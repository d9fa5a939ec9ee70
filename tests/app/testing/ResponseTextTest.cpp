#include "app/testing/ResponseText.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace vireo::impl {
namespace {

/// Reads it in pieces of `size` bytes. @return what was not taken.
std::string readInPieces(ResponseReader& reader, const std::string& bytes, std::size_t size) {
    std::string received;
    for (std::size_t i = 0; i < bytes.size(); i += size) {
        received += bytes.substr(i, size);
        reader.read(received);
    }
    return received;
}

const std::string Announced = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nX-One: a\r\nx-one:  b \r\n\r\nhello";
const std::string Chunked =
    "HTTP/1.1 201 Created\r\nTransfer-Encoding: Chunked\r\n\r\n3\r\nhel\r\n2;x=y\r\nlo\r\n0\r\nT: t\r\n\r\n";

TEST(ResponseReader, ReadsALengthInAnyPieces) {
    for (std::size_t size = 1; size <= Announced.size(); ++size) {
        ResponseReader reader(false);
        EXPECT_EQ(readInPieces(reader, Announced, size), "");
        ASSERT_TRUE(reader.isWhole()) << size;
        EXPECT_EQ(reader.text().status, 200);
        EXPECT_EQ(reader.text().body, "hello");
        EXPECT_EQ(reader.text().header("X-ONE"), "a, b");
        EXPECT_TRUE(reader.keepsConnection());
    }
}

TEST(ResponseReader, ReadsChunksInAnyPieces) {
    for (std::size_t size = 1; size <= Chunked.size(); ++size) {
        ResponseReader reader(false);
        EXPECT_EQ(readInPieces(reader, Chunked, size), "");
        ASSERT_TRUE(reader.isWhole()) << size;
        EXPECT_EQ(reader.text().status, 201);
        EXPECT_EQ(reader.text().body, "hello");
    }
}

TEST(ResponseReader, TakesNothingOfWhatFollows) {
    ResponseReader reader(false);
    std::string bytes = Announced + "HTTP/1.1 404";
    EXPECT_TRUE(reader.read(bytes));
    EXPECT_EQ(bytes, "HTTP/1.1 404");
}

TEST(ResponseReader, TakesAStatusWithoutAReason) {
    ResponseReader reader(false);
    std::string bytes = "HTTP/1.1 404\r\nContent-Length: 0\r\n\r\n";
    EXPECT_TRUE(reader.read(bytes));
    EXPECT_EQ(reader.text().status, 404);
}

TEST(ResponseReader, TakesNoOtherProtocol) {
    for (const char* const line : {"HTTQ/1.1 200 OK\r\n\r\n", "HTTP/2.0 200 OK\r\n\r\n", "HTTP/1.1 20\r\n\r\n"}) {
        ResponseReader reader(false);
        std::string bytes = line;
        EXPECT_THROW(reader.read(bytes), std::runtime_error) << line;
    }
}

TEST(ResponseReader, SkipsInterimAnswers) {
    ResponseReader reader(false);
    std::string bytes = "HTTP/1.1 100 Continue\r\nX: y\r\n\r\n" + Announced;
    EXPECT_TRUE(reader.read(bytes));
    EXPECT_EQ(reader.text().status, 200);
    EXPECT_EQ(reader.text().header("X"), "");
}

TEST(ResponseReader, ExpectsNoBodyWhereThereIsNone) {
    for (const std::string status : {"101 Switching Protocols", "204 No Content", "304 Not Modified"}) {
        ResponseReader reader(false);
        std::string bytes = "HTTP/1.1 " + status + "\r\nContent-Length: 5\r\n\r\nnext";
        EXPECT_TRUE(reader.read(bytes)) << status;
        EXPECT_EQ(bytes, "next");
    }
    ResponseReader ofHead(true);
    std::string bytes = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n";
    EXPECT_TRUE(ofHead.read(bytes));
    EXPECT_EQ(ofHead.text().header("Content-Length"), "5");
}

TEST(ResponseReader, ReadsToTheEndOfTheConnectionWithoutALength) {
    ResponseReader reader(false);
    std::string bytes = "HTTP/1.1 200 OK\r\n\r\nall";
    EXPECT_FALSE(reader.read(bytes));
    reader.finish();
    EXPECT_TRUE(reader.isWhole());
    EXPECT_EQ(reader.text().body, "all");
    EXPECT_FALSE(reader.keepsConnection());
}

TEST(ResponseReader, KeepsNoConnectionThatIsToBeClosed) {
    ResponseReader reader(false);
    std::string bytes = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
    EXPECT_TRUE(reader.read(bytes));
    EXPECT_FALSE(reader.keepsConnection());
}

TEST(ResponseReader, TakesNoTruncatedAnswerForAWholeOne) {
    for (const std::string& whole : {Announced, Chunked}) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            ResponseReader reader(false);
            std::string bytes = whole.substr(0, size);
            EXPECT_FALSE(reader.read(bytes));
            EXPECT_THROW(reader.finish(), std::runtime_error) << size;
        }
    }
}

TEST(ResponseReader, RefusesWhatIsNoHttp) {
    for (std::string bytes : {"SSH-2.0\r\n\r\n", "HTTP/1.1 abc OK\r\n\r\n", "HTTP/1.1 200 OK\r\nno colon\r\n\r\n",
                              "HTTP/1.1 200 OK\r\nContent-Length: five\r\n\r\n",
                              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n",
                              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nab\r\n"}) {
        ResponseReader reader(false);
        EXPECT_THROW(reader.read(bytes), std::runtime_error) << bytes;
    }
}

} // namespace
} // namespace vireo::impl
