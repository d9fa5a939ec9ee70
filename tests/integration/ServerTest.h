#pragma once

#include "support/Event.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/TestServer.h"
#include "support/WaitUntil.h"
#include "vireo/Vireo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vireotest {

using Behaviour = TestImpl::Behaviour;
using Parameters = ql::http::HttpServer::Parameters;
using RequestType = ql::HttpBaseRequest::RequestType;
using ResponseState = ql::HttpResponseDevice::ResponseState;
using Status = ql::http::HttpServer::Status;

/// The library is up, and its log is kept.
class ServerTest : public testing::Test {
protected:
    explicit ServerTest(bool verbose = false) : log_(verbose) { ql::initializeVireo(); }
    ~ServerTest() override { ql::terminateVireo(); }

    const TestLog log_;
};

} // namespace vireotest
