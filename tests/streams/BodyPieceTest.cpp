#include "streams/BodyPiece.h"

#include "support/FakeRequest.h"
#include "support/FakeWait.h"
#include "support/Pattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>

namespace {

using ql::impl::BodyPiece;
using testing::ElementsAre;
using testing::IsEmpty;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeWait;
using vireotest::pattern;

class BodyPieceTest : public testing::Test {
protected:
    BodyPieceTest() { request_.handleOnThisThread(); }

    void write(const std::string& bytes) { out_.writeBytes(bytes.data(), bytes.size()); }
    void loseConnection() {
        const qlMutexLocker locker(out_.getLock());
        out_.setConnectionLost("ClientAbort");
    }

    BodyPiece take(std::size_t max) { return ql::impl::takeBodyPiece(&request_, buffer_.data(), max, wait_); }
    std::string takeBytes(std::size_t max) { return {buffer_.data(), static_cast<std::size_t>(take(max).size)}; }

    void expectProgress() const {
        EXPECT_EQ(wait_.progressed, 1);
        EXPECT_THAT(wait_.waitedFor, IsEmpty());
    }

    FakeWait wait_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    ql::HttpResponseDevice& out_ = request_.editInternalResponseDevice();
    std::array<char, 131072> buffer_{};
};

TEST_F(BodyPieceTest, MissingRequestIsAnError) {
    EXPECT_EQ(ql::impl::takeBodyPiece(nullptr, buffer_.data(), 10, wait_).kind, BodyPiece::Kind::Error);
    expectProgress();
}

TEST_F(BodyPieceTest, LostConnectionIsAnErrorWhateverIsLeft) {
    write(pattern(65536));
    loseConnection();
    EXPECT_EQ(take(10).kind, BodyPiece::Kind::Error);
    expectProgress();
}

TEST_F(BodyPieceTest, BytesAreCopiedUpToWhatWasAskedFor) {
    write(pattern(65536));
    const BodyPiece piece = take(100);
    EXPECT_EQ(piece.kind, BodyPiece::Kind::Bytes);
    EXPECT_EQ(piece.size, 100U);
    EXPECT_EQ(std::string(buffer_.data(), 100), pattern(100));
    expectProgress();
    EXPECT_EQ(takeBytes(65537), pattern(65536).substr(100));
}

TEST_F(BodyPieceTest, NothingThereIsWaitedForOnce) {
    const BodyPiece piece = take(10);
    EXPECT_EQ(piece.kind, BodyPiece::Kind::Wait);
    EXPECT_EQ(piece.size, 0U);
    EXPECT_THAT(wait_.waitedFor, ElementsAre(&request_));
    EXPECT_EQ(wait_.progressed, 0);
}

TEST_F(BodyPieceTest, RestOfAnEndedBodyComesBeforeTheEnd) {
    write("rest");
    out_.endSending();
    EXPECT_EQ(takeBytes(10), "rest");
    EXPECT_EQ(take(10).kind, BodyPiece::Kind::End);
    EXPECT_EQ(take(10).kind, BodyPiece::Kind::End);
}

TEST_F(BodyPieceTest, EndIsProgress) {
    out_.endSending();
    EXPECT_EQ(take(10).kind, BodyPiece::Kind::End);
    expectProgress();
}

} // namespace
