#include "vireo/app/Room.h"

#include "app/sockets/RoomTable.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

using vireo::Room;
using vireo::Rooms;
using vireo::Socket;
using vireo::SocketSend;
using vireo::impl::RoomTable;

TEST(Rooms, AreThereAsSoonAsTheyAreAskedFor) {
    const Rooms rooms;
    const Room room = rooms["tea"];
    EXPECT_EQ(room.size(), 0);
    EXPECT_EQ(room.send("nobody hears it"), 0);
    EXPECT_EQ(rooms.count(), 1);
    const Rooms same = rooms;
    EXPECT_EQ(same.count(), 1);
}

TEST(Rooms, GoOnceNobodyStandsForThem) {
    const Rooms rooms;
    std::optional<Room> room = rooms["tea"];
    rooms["coffee"].send("nobody hears it");
    EXPECT_EQ(rooms.count(), 1);
    room.reset();
    EXPECT_EQ(rooms.count(), 0);
}

TEST(Rooms, ThoseThatCameAndWentDoNotAddUp) {
    RoomTable table;
    const Room held = table.room("held");
    for (int i = 0; i < 10000; ++i) {
        table.room(std::to_string(i));
        ASSERT_LE(table.heldCount(), RoomTable::LeastToSweep + 1);
    }
    EXPECT_EQ(table.count(), 1);
}

TEST(Socket, ThatReachesNoneIsClosed) {
    const Socket socket;
    EXPECT_EQ(socket.send("x"), SocketSend::Closed);
    EXPECT_EQ(socket.sendBinary({}), SocketSend::Closed);
    EXPECT_FALSE(socket.isOpen());
    EXPECT_EQ(socket.queuedBytes(), 0);
    socket.ping();
    socket.close();
    EXPECT_EQ(socket, Socket());
    EXPECT_FALSE(Room().add(socket));
    EXPECT_FALSE(Room().remove(socket));
}
