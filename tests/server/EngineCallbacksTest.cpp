#include "server/EngineCallbacks.h"

#include "server/RequestContext.h"
#include "support/FakeRequest.h"
#include "vireo/HttpServer.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using ql::http::RequestContext;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

class EngineCallbacksTest : public testing::Test {
protected:
    FakeServerImpl& application_ = *new FakeServerImpl;
    ql::http::HttpServer server_{&application_};
};

TEST_F(EngineCallbacksTest, ContextKeepsTheTargetAsItWasLogged) {
    const std::unique_ptr<RequestContext> context(
        static_cast<RequestContext*>(ql::http::onUri(nullptr, "/a%20b?c=%64", nullptr)));
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->fullUrl, "/a%20b?c=%64");
    EXPECT_EQ(context->request, nullptr);
    EXPECT_FALSE(context->receiveTimer.isTimeSnapped());
}

TEST_F(EngineCallbacksTest, ContextWithoutTargetIsEmpty) {
    const std::unique_ptr<RequestContext> context(
        static_cast<RequestContext*>(ql::http::onUri(nullptr, nullptr, nullptr)));
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->fullUrl, "");
}

TEST_F(EngineCallbacksTest, CompletionDestroysTheContextAndClearsTheSlot) {
    FakeRequest request(application_);
    auto context = std::make_unique<RequestContext>("/");
    context->request = &request;
    void* slot = context.release();
    ql::http::onRequestCompleted(&server_, nullptr, &slot, MHD_REQUEST_TERMINATED_COMPLETED_OK);
    EXPECT_EQ(slot, nullptr);
    EXPECT_TRUE(request.isSchedulerDone());
    EXPECT_EQ(application_.notified, 1);
}

TEST_F(EngineCallbacksTest, CompletionWithoutARequestNotifiesNobody) {
    void* slot = std::make_unique<RequestContext>("/").release();
    ql::http::onRequestCompleted(&server_, nullptr, &slot, MHD_REQUEST_TERMINATED_CLIENT_ABORT);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(EngineCallbacksTest, CompletionWithoutAContextDoesNothing) {
    void* slot = nullptr;
    ql::http::onRequestCompleted(&server_, nullptr, &slot, MHD_REQUEST_TERMINATED_CLIENT_ABORT);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(application_.notified, 0);
}

} // namespace
