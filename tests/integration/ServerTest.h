#pragma once

#include "support/Event.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/TestServer.h"
#include "support/WaitUntil.h"
#include "vireo/Vireo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

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

    /// Has a request answered once its client has gone; returns when it was.
    static void answerAfterTheClient(const std::function<void(TestRequest&)>& answer) {
        Event isAnswered;
        TestServer server([&](TestRequest& request) {
            EXPECT_TRUE(waitUntil([&] { return request.out().hasDeviceError(); }));
            answer(request);
            isAnswered.set();
        });
        RawClient client = server.connect();
        client.send(get("/"));
        server.application().seen();
        server.stop();
        EXPECT_TRUE(isAnswered.wait());
    }

    const TestLog log_;
};

} // namespace vireotest
