#include "server/UncompletedRequests.h"

#include "server/RequestContext.h"
#include "streams/DaemonCall.h"
#include "support/FakeRequest.h"
#include "vireo/HttpServer.h"
#include "websocket/SocketPort.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

namespace {

using ql::impl::endUncompleted;
using ql::impl::noteUncompleted;
using ql::impl::RequestContext;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

/// No number of a descriptor.
constexpr std::uint64_t Socket = 1ULL << 40U;

class UncompletedRequests : public testing::Test {
protected:
    struct Noted {
        Noted(FakeServerImpl& application, ql::http::HttpServer& server, std::uint64_t socket) : request(application) {
            context->request = &request;
            context->server = &server;
            noteUncompleted(socket, *context);
        }

        std::string error() { return request.editInternalResponseDevice().getDeviceErrorMsg(); }

        FakeRequest request;
        /// The engine's until somebody takes it.
        RequestContext* context = std::make_unique<RequestContext>("/").release();
    };

    FakeServerImpl& application_ = *new FakeServerImpl;
    ql::http::HttpServer server_{&application_};
    FakeServerImpl& otherApplication_ = *new FakeServerImpl;
    ql::http::HttpServer otherServer_{&otherApplication_};
};

TEST_F(UncompletedRequests, OfAConnectionThatIsGoneEndsWithAnErrorOnce) {
    Noted noted(application_, server_, Socket);
    bool isMarked = false;
    application_.onNotify = [&isMarked] { isMarked = ql::impl::DaemonCall::isUnderWay(); };
    endUncompleted(Socket);
    EXPECT_TRUE(noted.request.isSchedulerDone());
    EXPECT_EQ(noted.error(), "lost connection : WriteError");
    EXPECT_TRUE(isMarked);
    endUncompleted(Socket);
    EXPECT_EQ(application_.notified, 1);
}

TEST_F(UncompletedRequests, OfOtherConnectionsGoOn) {
    Noted first(application_, server_, Socket);
    Noted second(application_, server_, Socket + 1);
    // In the same place of the table.
    Noted third(application_, server_, Socket + 4093);
    endUncompleted(Socket + 1);
    EXPECT_TRUE(second.request.isSchedulerDone());
    EXPECT_FALSE(first.request.isSchedulerDone());
    EXPECT_FALSE(third.request.isSchedulerDone());
    endUncompleted(Socket);
    EXPECT_TRUE(first.request.isSchedulerDone());
    EXPECT_FALSE(third.request.isSchedulerDone());
    endUncompleted(server_);
    EXPECT_TRUE(third.request.isSchedulerDone());
}

TEST_F(UncompletedRequests, ThatTheApplicationWasNotGivenEndWithoutAWord) {
    noteUncompleted(Socket, *std::make_unique<RequestContext>("/").release());
    endUncompleted(Socket);
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(UncompletedRequests, AreNotThoseThatAreCompleted) {
    Noted noted(application_, server_, Socket);
    std::unique_ptr<RequestContext>(noted.context).reset();
    endUncompleted(Socket);
    endUncompleted(server_);
    EXPECT_FALSE(noted.request.isSchedulerDone());
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(UncompletedRequests, OfAConnectionWithoutANumberAreNotNoted) {
    Noted noted(application_, server_, ql::impl::InvalidSocket);
    const std::unique_ptr<RequestContext> context(noted.context);
    endUncompleted(ql::impl::InvalidSocket);
    endUncompleted(server_);
    EXPECT_FALSE(noted.request.isSchedulerDone());
}

TEST_F(UncompletedRequests, OfAServerThatHasStoppedEndForThat) {
    Noted first(application_, server_, Socket);
    Noted second(application_, server_, Socket + 1);
    Noted foreign(otherApplication_, otherServer_, Socket + 2);
    endUncompleted(server_);
    for (Noted* const noted : {&first, &second}) {
        EXPECT_TRUE(noted->request.isSchedulerDone());
        EXPECT_EQ(noted->error(), "lost connection : DaemonShutdown");
    }
    EXPECT_FALSE(foreign.request.isSchedulerDone());
    endUncompleted(otherServer_);
    EXPECT_EQ(otherApplication_.notified, 1);
}

} // namespace
