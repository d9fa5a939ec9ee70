#include "server/ConnectionTable.h"

#include "server/ClientConnection.h"
#include "server/Exchange.h"
#include "support/FakeRequest.h"
#include "support/FakeSuspension.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

using ql::impl::ClientConnection;
using ql::impl::ConnectionTable;
using ql::impl::EngineConnection;
using ql::impl::Exchange;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeSuspension;

constexpr auto NoSocket = static_cast<std::uint64_t>(-1);

class ConnectionTableTest : public testing::Test {
protected:
    std::size_t countAsked() {
        std::size_t asked = 0;
        table.those([&asked](const ClientConnection&) {
            ++asked;
            return false;
        });
        return asked;
    }

    std::shared_ptr<Exchange> begin(ClientConnection& client) {
        const auto exchange = std::make_shared<Exchange>(EngineConnection(nullptr), NoSocket, 0, client.marks());
        client.beginExchange(request_, exchange);
        return exchange;
    }

    const FakeSuspension engine_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    ConnectionTable table;
    const std::shared_ptr<ClientConnection> one = table.add(NoSocket, ql::IpAddress());
    const std::shared_ptr<ClientConnection> other = table.add(NoSocket, ql::IpAddress());
};

TEST_F(ConnectionTableTest, ConnectionIsFoundUntilItIsClosed) {
    EXPECT_EQ(table.find(one->number()), one);
    EXPECT_EQ(table.find(other->number()), other);
    EXPECT_EQ(table.remove(*one), one);
    EXPECT_EQ(table.find(one->number()), nullptr);
    EXPECT_EQ(table.remove(*one), nullptr);
    EXPECT_EQ(table.all().size(), 1U);
}

TEST_F(ConnectionTableTest, ExchangesAreCountedAlsoOfConnectionsThatAreClosed) {
    begin(*one);
    begin(*other);
    EXPECT_EQ(table.exchangeCounts().living, 2U);
    one->endExchange();
    EXPECT_EQ(table.exchangeCounts().living, 1U);
    EXPECT_EQ(table.exchangeCounts().ended, 1U);
    table.remove(*one);
    EXPECT_EQ(table.exchangeCounts().living, 1U);
    EXPECT_EQ(table.exchangeCounts().ended, 1U);
    other->endExchange();
    EXPECT_EQ(table.exchangeCounts().ended, 2U);
}

TEST_F(ConnectionTableTest, ExchangesOfAStopAreResumedAndNotSuspendedAgain) {
    const auto living = begin(*other);
    EXPECT_EQ(living->suspend(), Exchange::Suspension::Outcome::Suspended);
    table.finishExchanges();
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_EQ(living->suspend(), Exchange::Suspension::Outcome::Finished);
    other->endExchange();
    // Those that begin later, on an old connection or a new one.
    const std::shared_ptr<ClientConnection> later = table.add(NoSocket, ql::IpAddress());
    for (const auto& client : {one, other, later}) {
        EXPECT_EQ(begin(*client)->suspend(), Exchange::Suspension::Outcome::Finished);
        client->endExchange();
    }
}

TEST_F(ConnectionTableTest, WebSocketIsThereButCostsNoLook) {
    EXPECT_EQ(countAsked(), 2U);
    table.noteUpgrade(*one);
    EXPECT_EQ(countAsked(), 1U);
    EXPECT_EQ(table.find(one->number()), one);
    EXPECT_EQ(table.all().size(), 2U);
    EXPECT_EQ(table.remove(*one), one);
    table.noteUpgrade(*one);
    EXPECT_EQ(table.all().size(), 1U);
}

} // namespace
