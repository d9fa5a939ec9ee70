#include "app/body/RequestBody.h"

#include "app/body/FakeBody.h"
#include "support/Pattern.h"
#include "support/TestFile.h"
#include "support/WaitUntil.h"
#include "vireo/FormDecoder.h"
#include "vireo/app/ClientGone.h"
#include "vireo/app/HttpError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using vireo::Body;
using vireo::ClientGone;
using vireo::HttpError;
using vireo::NewFile;
using vireo::impl::RequestBody;
using vireotest::contentOf;
using vireotest::CountedWaits;
using vireotest::FakeBody;
using vireotest::pattern;
using vireotest::TestDirectory;
using vireotest::waitUntil;

class RequestBodyTest : public testing::Test {
protected:
    RequestBody& make(const RequestBody::Limits& limits = FakeBody::limits()) {
        return *(body_ = std::make_unique<RequestBody>(fake_.device(), nullptr, limits, &waits_));
    }

    static std::string readAll(Body& body) {
        std::string all;
        while (const auto piece = body.read()) {
            EXPECT_LE(piece->size(), 65536U);
            all += *piece;
        }
        return all;
    }

    static int statusOf(const std::function<void()>& call) {
        try {
            call();
        } catch (const HttpError& error) {
            return error.status();
        }
        return 0;
    }

    FakeBody fake_;
    CountedWaits waits_;
    std::unique_ptr<RequestBody> body_;
    const TestDirectory directory_;
};

// ---- In pieces ----

TEST_F(RequestBodyTest, PiecesAreTheWhole) {
    const std::string content = pattern(300000);
    fake_.feed(content);
    fake_.end();
    EXPECT_TRUE(readAll(make().body()) == content);
    EXPECT_EQ(body_->body().read(), std::nullopt);
}

TEST_F(RequestBodyTest, PieceComesAsSoonAsThereIsOne) {
    Body& body = make().body();
    std::thread client([this] {
        EXPECT_TRUE(waitUntil([this] { return waits_.open == 1; }));
        fake_.feed("a");
        EXPECT_TRUE(waitUntil([this] { return waits_.count == 2 && waits_.open == 1; }));
        fake_.feed("b");
        fake_.end();
    });
    EXPECT_EQ(body.read(), "a");
    EXPECT_EQ(body.read(), "b");
    EXPECT_EQ(body.read(), std::nullopt);
    client.join();
    EXPECT_EQ(waits_.open, 0);
}

TEST_F(RequestBodyTest, NobodyWaitsForABodyThatIsThere) {
    fake_.feed("abc");
    fake_.end();
    EXPECT_EQ(readAll(make(FakeBody::limits(10, 3, true)).body()), "abc");
    EXPECT_EQ(waits_.count, 0);
}

TEST_F(RequestBodyTest, ClientThatHasGoneIsToldAgainAndAgain) {
    fake_.feed("abc");
    Body& body = make().body();
    EXPECT_EQ(body.read(), "abc");
    fake_.cut();
    EXPECT_THROW(body.read(), ClientGone);
    EXPECT_THROW(body.read(), ClientGone);
    EXPECT_EQ(waits_.open, 0);
}

TEST_F(RequestBodyTest, LimitHoldsToTheByte) {
    fake_.feed("0123456789");
    fake_.end();
    EXPECT_EQ(readAll(make(FakeBody::limits(10)).body()), "0123456789");
    FakeBody longer;
    longer.feed("0123456789a");
    longer.end();
    RequestBody body(longer.device(), nullptr, FakeBody::limits(10), nullptr);
    EXPECT_EQ(statusOf([&] { readAll(body.body()); }), 413);
    EXPECT_EQ(statusOf([&] { body.body().read(); }), 413);
    try {
        body.body().text();
        ADD_FAILURE();
    } catch (const std::logic_error&) {
        // some of it was taken
    }
}

TEST_F(RequestBodyTest, LimitIsNamed) {
    fake_.feed("01234567890");
    try {
        make(FakeBody::limits(10)).body().text();
        ADD_FAILURE();
    } catch (const HttpError& error) {
        EXPECT_STREQ(error.what(), "the body is larger than 10 bytes");
    }
}

// ---- As a whole ----

TEST_F(RequestBodyTest, TextIsKeptForWhoeverAsks) {
    const std::string content = pattern(100000);
    fake_.feed(content);
    fake_.end();
    Body& body = make().body();
    EXPECT_TRUE(body.text() == content);
    EXPECT_TRUE(body.text() == content);
    EXPECT_TRUE(readAll(body) == content);
    EXPECT_EQ(body.read(), std::nullopt);
}

TEST_F(RequestBodyTest, TextOfATruncatedBodyIsNone) {
    fake_.feed("abc");
    fake_.cut();
    Body& body = make().body();
    EXPECT_THROW(body.text(), ClientGone);
    EXPECT_THROW(body.text(), ClientGone);
}

TEST_F(RequestBodyTest, TextAfterAPieceIsALogicError) {
    fake_.feed("abc");
    fake_.end();
    make().body().read();
    EXPECT_THROW(body_->body().text(), std::logic_error);
}

TEST_F(RequestBodyTest, FrozenBodyKeepsWhatItGaveAndGivesNoMore) {
    fake_.feed("abc");
    fake_.end();
    Body& body = make().body();
    EXPECT_EQ(body.text(), "abc");
    body_->freeze();
    EXPECT_EQ(body.text(), "abc");
    FakeBody other;
    other.feed("abc");
    RequestBody unread(other.device(), nullptr, FakeBody::limits(), nullptr);
    Body& late = unread.body();
    unread.freeze();
    EXPECT_THROW(late.read(), std::logic_error);
    EXPECT_THROW(late.text(), std::logic_error);
}

TEST_F(RequestBodyTest, AnnouncedLengthIsTheHeads) {
    EXPECT_EQ(make(FakeBody::limits(10, 5)).body().announced(), 5U);
    EXPECT_EQ(make().body().announced(), std::nullopt);
}

// ---- Into files ----

TEST_F(RequestBodyTest, FileHasItsNameOnceItIsKept) {
    const std::string content = pattern(200000);
    fake_.feed(content);
    fake_.end();
    NewFile file = make().newFile(directory_.path().string());
    body_->body().saveTo(file);
    EXPECT_EQ(file.size(), content.size());
    EXPECT_FALSE(exists(directory_.path() / "kept"));
    file.keepAs("kept");
    EXPECT_TRUE(contentOf(directory_.path() / "kept") == content);
    EXPECT_EQ(directory_.entries(), 1U);
    EXPECT_THROW(file.keepAs("again"), std::logic_error);
    EXPECT_THROW(file.write("more"), std::logic_error);
}

TEST_F(RequestBodyTest, FileOfATruncatedBodyIsGone) {
    fake_.feed(pattern(200000));
    fake_.cut();
    {
        NewFile file = make().newFile(directory_.path().string());
        EXPECT_THROW(body_->body().saveTo(file), ClientGone);
        EXPECT_EQ(directory_.entries(), 1U);
    }
    EXPECT_EQ(directory_.entries(), 0U);
}

TEST_F(RequestBodyTest, FileOfATruncatedBodyCannotBeKept) {
    fake_.feed("abc");
    fake_.cut();
    NewFile file = make().newFile(directory_.path().string());
    try {
        while (const auto piece = body_->body().read()) {
            file.write(*piece);
        }
    } catch (const std::exception&) {
        // A handler that swallows everything.
    }
    EXPECT_THROW(file.keepAs("kept"), ClientGone);
    EXPECT_FALSE(exists(directory_.path() / "kept"));
}

TEST_F(RequestBodyTest, FileOfABodyThatIsTooLargeCannotBeKept) {
    fake_.feed("abc");
    fake_.end();
    NewFile file = make(FakeBody::limits(2)).newFile(directory_.path().string());
    EXPECT_THROW(body_->body().saveTo(file), HttpError);
    EXPECT_THROW(file.keepAs("kept"), ClientGone);
}

TEST_F(RequestBodyTest, FileThatABodyWasSavedToKnowsIt) {
    fake_.feed("abc");
    fake_.cut();
    NewFile file(directory_.path().string());
    EXPECT_THROW(make().body().saveTo(file), ClientGone);
    body_.reset();
    EXPECT_THROW(file.keepAs("kept"), ClientGone);
}

// ---- As a form ----

TEST_F(RequestBodyTest, WhatIsNoFormIsRefused) {
    fake_.feed("abc");
    fake_.end();
    make();
    EXPECT_EQ(statusOf([&] { body_->form({}); }), 415);
    EXPECT_EQ(statusOf([&] { body_->parts(); }), 415);
    EXPECT_EQ(body_->body().text(), "abc");
}

TEST_F(RequestBodyTest, WithoutABodyTheFormIsEmpty) {
    fake_.end();
    vireo::Form& form = make(FakeBody::limits(10, 0, true)).form({});
    EXPECT_EQ(form.get("a", "b"), "b");
    EXPECT_EQ(statusOf([&] { form["a"]; }), 400);
    EXPECT_EQ(&body_->form({}), &form);
    EXPECT_THROW(body_->parts(), std::logic_error);
}

} // namespace
