#include "integration/ServerTest.h"

#include <memory>

#include <microhttpd.h>

// An application that drives a daemon of its own with the library's callbacks.

namespace vireotest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

using ql::http::HttpServerImpl;

class OwnDaemon : public ServerTest {
protected:
    OwnDaemon() : port_(freePort()), application_(new TestImpl(Behaviour{})), server_(application_, optionsOfTests()) {}

    /// Started with the library's callbacks and without any of its other options.
    MHD_Daemon* startDaemon() {
        return MHD_start_daemon(MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG, port_, nullptr,
                                nullptr, reinterpret_cast<MHD_AccessHandlerCallback>(HttpServerImpl::GetHttpCallback()),
                                &server_, MHD_OPTION_EXTERNAL_LOGGER, HttpServerImpl::GetLogFunction(), nullptr,      //
                                MHD_OPTION_URI_LOG_CALLBACK, HttpServerImpl::GetUriLogCallback(), nullptr,            //
                                MHD_OPTION_NOTIFY_COMPLETED, HttpServerImpl::GetRequestCompletedCallback(), &server_, //
                                MHD_OPTION_NOTIFY_CONNECTION, HttpServerImpl::GetConnectionCallback(), nullptr,       //
                                MHD_OPTION_END);
    }

    const std::uint16_t port_;
    TestImpl* const application_;
    ql::http::HttpServer server_;
};

TEST_F(OwnDaemon, ServesRequestsThroughAnUnstartedServer) {
    MHD_Daemon* const daemon = startDaemon();
    ASSERT_NE(daemon, nullptr);
    {
        RawClient client(port_);
        EXPECT_EQ(client.exchange(post("/own?a=b", "own")).body, "own");
        EXPECT_EQ(client.exchange(post("/own", "again")).body, "again");
    }
    EXPECT_TRUE(log_.waitFor(qlLogType::Connection, " after 2 uses in "));
    MHD_stop_daemon(daemon);
    EXPECT_EQ(application_->seen()[0].url, "/own?a=b");
    EXPECT_EQ(application_->finished(2)[0].deviceError, "");
    EXPECT_EQ(server_.getStatus(), Status::Stopped);
}

TEST_F(OwnDaemon, EngineMessagesGoToTheLog) {
    MHD_Daemon* const daemon = startDaemon();
    ASSERT_NE(daemon, nullptr);
    EXPECT_EQ(startDaemon(), nullptr);
    MHD_stop_daemon(daemon);
    EXPECT_THAT(log_.texts(qlLogType::Engine), ElementsAre(StartsWith("libmicrohttpd: Failed to bind to port")));
}

} // namespace
} // namespace vireotest
