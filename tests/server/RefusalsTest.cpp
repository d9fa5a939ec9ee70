#include "server/Refusals.h"

#include "engine/Listener.h"
#include "support/OpenListener.h"
#include "support/RawClient.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using ql::impl::AcceptedSocket;
using ql::impl::Listener;
using vireotest::RawClient;
using vireotest::RawResponse;
using vireotest::waitUntil;

class RefusalsTest : public testing::Test {
protected:
    RawClient refused() {
        RawClient client(listener_->port());
        AcceptedSocket accepted;
        EXPECT_TRUE(waitUntil([&] { return listener_->accept(accepted) == Listener::Outcome::Accepted; }));
        refusals_.add(accepted.socket, 0);
        return client;
    }

    const std::unique_ptr<Listener> listener_ = vireotest::openListener();
    ql::impl::Refusals refusals_;
};

TEST_F(RefusalsTest, TellThatThereIsNoRoomAndWhenToComeAgain) {
    RawClient client = refused();
    const RawResponse response = client.readResponse();
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(response.value("Connection"), "close");
    EXPECT_EQ(response.value("Retry-After"), "1");
    EXPECT_EQ(client.readToEnd(), "");
}

TEST_F(RefusalsTest, AnswerReachesAClientThatSendsItsRequestAfterwards) {
    RawClient client = refused();
    const std::string request(200000, 'x');
    EXPECT_TRUE(client.trySend(request));
    refusals_.look(1);
    EXPECT_TRUE(client.trySend(request)) << "it was not reset";
    EXPECT_EQ(client.readResponse().status, 503);
    EXPECT_FALSE(refusals_.isEmpty());
    client.close();
    EXPECT_TRUE(waitUntil([&] {
        refusals_.look(2);
        return refusals_.isEmpty();
    }));
}

TEST_F(RefusalsTest, ClientThatStaysIsLeftAfterASecond) {
    RawClient client = refused();
    refusals_.look(999);
    EXPECT_FALSE(refusals_.isEmpty());
    refusals_.look(1000);
    EXPECT_TRUE(refusals_.isEmpty());
}

TEST_F(RefusalsTest, OldestMakesRoomForOneTooMany) {
    RawClient first = refused();
    EXPECT_EQ(first.readResponse().status, 503);
    std::vector<RawClient> others;
    for (int i = 0; i < 63; ++i) {
        others.push_back(refused());
    }
    EXPECT_TRUE(first.trySend("x")) << "it is still there";
    others.push_back(refused());
    EXPECT_TRUE(waitUntil([&] { return !first.trySend("x"); }));
}

} // namespace
