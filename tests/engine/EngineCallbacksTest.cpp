#include "engine/EngineCallbacks.h"

#include "server/RequestContext.h"
#include "streams/DaemonCall.h"
#include "support/FakeRequest.h"
#include "vireo/HttpServer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace {

using ql::impl::RequestContext;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

class EngineCallbacksTest : public testing::Test {
protected:
    FakeServerImpl& application_ = *new FakeServerImpl;
    ql::http::HttpServer server_{&application_};
};

TEST_F(EngineCallbacksTest, ContextKeepsTheTargetAsItWasLogged) {
    const RequestContext context("/a%20b?c=%64");
    EXPECT_EQ(context.fullUrl, "/a%20b?c=%64");
    EXPECT_EQ(context.request, nullptr);
    EXPECT_FALSE(context.receiveTimer.isTimeSnapped());
}

TEST_F(EngineCallbacksTest, ContextWithoutTargetIsEmpty) {
    EXPECT_EQ(RequestContext(nullptr).fullUrl, "");
}

TEST_F(EngineCallbacksTest, CompletionDestroysTheContextAndClearsTheSlot) {
    FakeRequest request(application_);
    auto context = std::make_unique<RequestContext>("/");
    context->request = &request;
    void* slot = context.release();
    ql::impl::onRequestCompleted(&server_, nullptr, &slot, MHD_REQUEST_TERMINATED_COMPLETED_OK);
    EXPECT_EQ(slot, nullptr);
    EXPECT_TRUE(request.isSchedulerDone());
    EXPECT_EQ(application_.notified, 1);
}

TEST_F(EngineCallbacksTest, CompletionWithoutARequestNotifiesNobody) {
    void* slot = std::make_unique<RequestContext>("/").release();
    ql::impl::onRequestCompleted(&server_, nullptr, &slot, MHD_REQUEST_TERMINATED_CLIENT_ABORT);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(EngineCallbacksTest, CompletionWithoutAContextDoesNothing) {
    void* slot = nullptr;
    ql::impl::onRequestCompleted(&server_, nullptr, &slot, MHD_REQUEST_TERMINATED_CLIENT_ABORT);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(EngineCallbacksTest, ApplicationIsCalledOnAThreadMarkedAsADaemonThread) {
    int marked = 0;
    const auto look = [&marked] { marked += ql::impl::DaemonCall::isUnderWay() ? 1 : 0; };

    class LookingRequest : public FakeRequest {
    public:
        LookingRequest(FakeServerImpl& application, std::function<void()> look)
            : FakeRequest(application), look_(std::move(look)) {}
        ql::HttpResponseInterface& getResponse() override {
            look_();
            return response;
        }

    private:
        const std::function<void()> look_;
    };
    LookingRequest request(application_, look);
    auto context = std::make_unique<RequestContext>("/");
    context->request = &request;
    void* slot = context.release();
    std::size_t none = 0;
    ql::impl::onAccess(&server_, nullptr, "/", "GET", "HTTP/1.1", nullptr, &none, &slot);
    EXPECT_EQ(marked, 1);

    application_.onNotify = look;
    ql::impl::onRequestCompleted(&server_, nullptr, &slot, MHD_REQUEST_TERMINATED_COMPLETED_OK);
    EXPECT_EQ(marked, 2);

    application_.onAccept = [&look](ql::http::WebSocket* connection) {
        look();
        delete connection;
    };
    ql::impl::onUpgrade(&server_, nullptr, nullptr, nullptr, 0, MHD_INVALID_SOCKET, nullptr);
    EXPECT_EQ(marked, 3);

    look();
    EXPECT_EQ(marked, 3);
}

} // namespace
