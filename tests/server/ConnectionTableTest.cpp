#include "server/ConnectionTable.h"

#include "server/ClientConnection.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

using ql::impl::ClientConnection;
using ql::impl::ConnectionTable;

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
