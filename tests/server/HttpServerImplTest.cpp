#include "vireo/HttpServerImpl.h"

#include "server/EngineCallbacks.h"
#include "server/EngineLog.h"
#include "support/FakeRequest.h"

#include <gtest/gtest.h>

namespace {

using ql::http::HttpServerImpl;
using vireotest::FakeServerImpl;

TEST(HttpServerImpl, DefaultInternalErrorIsEmpty) {
    const FakeServerImpl implementation;
    EXPECT_EQ(implementation.getDefaultInternalError(), "");
}

TEST(HttpServerImpl, DerivedClassSetsTheDefaultInternalError) {
    FakeServerImpl implementation;
    implementation.setDefaultInternalError("out of order");
    EXPECT_EQ(implementation.getDefaultInternalError(), "out of order");
}

TEST(HttpServerImpl, DefaultInternalErrorIsTheSameObjectEachTime) {
    const FakeServerImpl implementation;
    EXPECT_EQ(&implementation.getDefaultInternalError(), &implementation.getDefaultInternalError());
}

TEST(HttpServerImpl, GettersGiveTheLibrarysCallbacks) {
    EXPECT_EQ(HttpServerImpl::GetHttpCallback(), reinterpret_cast<void*>(&ql::http::onAccess));
    EXPECT_EQ(HttpServerImpl::GetRequestCompletedCallback(), reinterpret_cast<void*>(&ql::http::onRequestCompleted));
    EXPECT_EQ(HttpServerImpl::GetUriLogCallback(), reinterpret_cast<void*>(&ql::http::onUri));
    EXPECT_EQ(HttpServerImpl::GetLogFunction(), reinterpret_cast<void*>(&ql::http::relayEngineMessage));
    EXPECT_EQ(HttpServerImpl::GetConnectionCallback(), reinterpret_cast<void*>(&ql::http::onConnection));
}

} // namespace
