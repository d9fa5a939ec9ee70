#include "server/Exchange.h"

#include "interleaving/Explore.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/ExchangeCut.h"
#include "server/RequestCompletion.h"
#include "server/RequestContext.h"
#include "server/RequestDispatch.h"
#include "streams/BodyPiece.h"
#include "streams/FeedAccess.h"
#include "support/FakeRequest.h"
#include "support/FakeSuspension.h"
#include "support/FakeWait.h"
#include "support/Interleavings.h"
#include "support/Pattern.h"
#include "vireo/HttpServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using ql::impl::BodyPiece;
using ql::impl::CutReason;
using ql::impl::EngineConnection;
using ql::impl::Exchange;
using ql::impl::RequestAccess;
using ql::impl::Verdict;
using vireotest::exploreAll;
using vireotest::exploreRandomly;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeSuspension;
using vireotest::Interleavings;

constexpr auto NoSocket = static_cast<std::uint64_t>(-1);
constexpr std::uint64_t WindowBytes = 100;
/// More than is queued before a writer waits.
constexpr std::size_t LargeChunk = 200000;

/// One exchange, with the engine's daemon thread played by daemon(): as the engine does, it calls again and again, but
/// for the time that the connection is suspended.
class OneExchange {
public:
    /// @param bodyBytes the pieces in which the body comes.
    explicit OneExchange(std::vector<std::size_t> pieces) : pieces_(std::move(pieces)) {
        std::uint64_t bodyBytes = 0;
        for (const std::size_t piece : pieces_) {
            bodyBytes += piece;
        }
        body_ = vireotest::pattern(bodyBytes);
        context_.serving = &serving_;
        context_.client = &client_;
        context_.request = &request_;
        context_.receiveTimer.restart();
        context_.exchange =
            std::make_shared<Exchange>(EngineConnection(nullptr), NoSocket, Exchange::UnknownLength, client_.marks());
        RequestAccess::state(request_).wait = context_.exchange;
        ql::impl::FeedAccess::setWindow(request_.editFeedDevice(), WindowBytes);
        client_.beginExchange(request_, context_.exchange);
    }

    FakeRequest& request() { return request_; }
    const std::string& body() const { return body_; }
    /// Of the answer, as far as the engine took it.
    const std::string& sent() const { return sent_; }

    void daemon() {
        const char* loss = serve() ? nullptr : "WriteError";
        loss = ql::impl::completeExchange(context_, loss);
        ql::impl::completeRequest(server_, request_, loss);
    }

    void cut(CutReason reason) {
        const qlMutexLocker locker(client_.gate());
        ql::impl::cutExchange(client_, reason);
    }

private:
    /// @return whether all of the answer was taken.
    bool serve() {
        while (context_.exchange->phase() == Exchange::Phase::Head) {
            if (!callAgain({})) {
                return false;
            }
        }
        std::size_t offset = 0;
        for (const std::size_t size : pieces_) {
            if (context_.exchange->phase() == Exchange::Phase::Answered) {
                break;
            }
            do {
                if (!callAgain(body_.substr(offset, size))) {
                    return false;
                }
            } while (left_ != 0);
            offset += size;
        }
        while (context_.exchange->phase() != Exchange::Phase::Answered) {
            if (!callAgain({})) {
                return false;
            }
        }
        std::array<char, LargeChunk> buffer;
        while (true) {
            awaitResumption();
            const BodyPiece piece =
                ql::impl::takeBodyPiece(&request_, buffer.data(), buffer.size(), *context_.exchange);
            sent_.append(buffer.data(), static_cast<std::size_t>(piece.size));
            if (piece.kind == BodyPiece::Kind::End || piece.kind == BodyPiece::Kind::Error) {
                return piece.kind == BodyPiece::Kind::End;
            }
        }
    }

    /// @return false when the connection is to be closed.
    bool callAgain(const std::string& body) {
        awaitResumption();
        left_ = body.size();
        const Verdict verdict = ql::impl::RequestDispatch(server_, EngineConnection(nullptr), "POST", "HTTP/1.1", wait_)
                                    .handleCall(body.data(), left_, slot_);
        // There is no engine to take an answer, which is a reason to close as well.
        return verdict == Verdict::Continue || context_.exchange->phase() == Exchange::Phase::Answered;
    }

    static void awaitResumption() {
        Interleavings::waitUntil([] { return !FakeSuspension::isSuspended(); });
    }

    const FakeSuspension engine_;
    vireotest::FakeWait wait_;
    FakeServerImpl& application_ = *new FakeServerImpl;
    ql::http::HttpServer server_{&application_};
    FakeRequest request_{application_};
    const ql::http::ServerOptions options_;
    ql::impl::EventServing serving_{server_, options_, WindowBytes};
    ql::impl::ClientConnection client_{1, NoSocket, ql::IpAddress()};
    ql::impl::RequestContext context_{"/"};
    void* slot_ = &context_;
    const std::vector<std::size_t> pieces_;
    std::string body_;
    std::size_t left_ = 0;
    std::string sent_;
};

/// The request's worker: reads all of the body, in pieces, and answers with it.
void echo(FakeRequest& request, std::size_t readBytes, std::string& read) {
    request.handleOnThisThread();
    ql::HttpReceiveDevice& in = request.editFeedDevice();
    ql::HttpResponseDevice& out = request.editInternalResponseDevice();
    std::string piece(readBytes, '?');
    while (!in.atEnd()) {
        const auto size = static_cast<std::size_t>(in.readBytes(piece.data(), piece.size()));
        read.append(piece, 0, size);
        out.writeBytes(piece.data(), size);
    }
    out.endSending();
    out.releaseResponse();
}

void echoBody(const std::vector<std::size_t>& pieces, std::size_t readBytes) {
    OneExchange exchange(pieces);
    std::string read;
    std::thread daemon([&] { exchange.daemon(); });
    echo(exchange.request(), readBytes, read);
    daemon.join();
    EXPECT_EQ(read, exchange.body());
    EXPECT_FALSE(exchange.request().editFeedDevice().hasDeviceError());
    EXPECT_TRUE(exchange.request().isSchedulerDone());
    vireotest::expectNoTimeHasPassed();
}

TEST(ExchangeInterleavingTest, UploadThatIsHeldComesWholeAndIsAnswered) {
    ASSERT_GT(exploreAll([] { echoBody({60, 60}, 50); }, 3), 100U);
    exploreRandomly([] { echoBody({60, 60, 100, 1, 300, 40}, 70); }, 1000);
}

/// More than may be queued: the writer waits for the engine.
void download(std::size_t chunks, bool isCut) {
    OneExchange exchange({});
    FakeRequest& request = exchange.request();
    std::thread daemon([&] { exchange.daemon(); });
    std::thread watch([&] {
        if (isCut) {
            exchange.cut(CutReason::ClientLeft);
        }
    });
    request.handleOnThisThread();
    ql::HttpResponseDevice& out = request.editInternalResponseDevice();
    out.releaseResponse();
    const std::string chunk = vireotest::pattern(LargeChunk);
    for (std::size_t i = 0; i < chunks; ++i) {
        out.writeBytes(chunk.data(), chunk.size());
        out.flush();
    }
    out.endSending();
    daemon.join();
    watch.join();
    EXPECT_TRUE(request.isSchedulerDone());
    if (!isCut) {
        EXPECT_EQ(exchange.sent().size(), chunks * LargeChunk);
        EXPECT_FALSE(out.hasDeviceError());
    }
    vireotest::expectNoTimeHasPassed();
}

TEST(ExchangeInterleavingTest, WriterThatWaitsForTheEngineGoesOn) {
    ASSERT_GT(exploreAll([] { download(3, false); }, 1), 100U);
    exploreRandomly([] { download(5, false); }, 300);
}

TEST(ExchangeInterleavingTest, WriterThatWaitsIsLetGoWhenTheClientLeaves) {
    ASSERT_GT(exploreAll([] { download(3, true); }, 1), 100U);
    exploreRandomly([] { download(5, true); }, 300);
}

void leaveDuringUpload() {
    OneExchange exchange({60, 60, 100, 40});
    std::string read;
    std::thread daemon([&] { exchange.daemon(); });
    std::thread watch([&] { exchange.cut(CutReason::ClientLeft); });
    echo(exchange.request(), 70, read);
    daemon.join();
    watch.join();
    EXPECT_EQ(read, exchange.body().substr(0, read.size()));
    EXPECT_TRUE(exchange.request().isSchedulerDone());
    if (read.size() != exchange.body().size()) {
        EXPECT_EQ(exchange.request().editFeedDevice().getDeviceErrorMsg(), "lost connection : ClientAbort");
    }
    vireotest::expectNoTimeHasPassed();
}

TEST(ExchangeInterleavingTest, ReaderIsLetGoWhenTheClientLeaves) {
    ASSERT_GT(exploreAll(leaveDuringUpload, 1), 100U);
    exploreRandomly(leaveDuringUpload, 500);
}

} // namespace
