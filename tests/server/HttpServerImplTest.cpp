#include "vireo/HttpServerImpl.h"

#include "engine/EngineCallbacks.h"
#include "engine/EngineLog.h"
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
    EXPECT_EQ(HttpServerImpl::GetHttpCallback(), reinterpret_cast<void*>(&ql::impl::onAccess));
    EXPECT_EQ(HttpServerImpl::GetRequestCompletedCallback(), reinterpret_cast<void*>(&ql::impl::onRequestCompleted));
    EXPECT_EQ(HttpServerImpl::GetUriLogCallback(), reinterpret_cast<void*>(&ql::impl::onUri));
    EXPECT_EQ(HttpServerImpl::GetLogFunction(), reinterpret_cast<void*>(&ql::impl::relayEngineMessage));
    EXPECT_EQ(HttpServerImpl::GetConnectionCallback(), reinterpret_cast<void*>(&ql::impl::onConnection));
}

} // namespace
