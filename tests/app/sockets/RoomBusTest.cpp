#include "vireo/app/RoomBus.h"

#include "app/sockets/RoomFrame.h"
#include "app/sockets/RoomLink.h"
#include "support/TestLog.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using vireo::App;
using vireo::Request;
using vireo::Room;
using vireo::RoomBus;
using vireo::Rooms;
using vireo::RoomTraffic;
using vireo::Socket;
using vireo::SocketOpening;
using vireo::TestClient;
using vireo::TestSocket;
using vireo::impl::readRoomFrame;
using vireo::impl::RoomFrame;
using vireo::impl::RoomLink;
using vireo::impl::RoomOrigin;
using vireo::impl::setRoomFrameNumber;
using vireo::impl::writeRoomFrame;
using vireotest::TestLog;

namespace {

class FakeBus;

/// Where the frames of several buses wait until the test hands them to all of them.
struct Exchange {
    std::vector<FakeBus*> buses;
    std::deque<std::string> frames;
    int started = 0;
    int stopped = 0;
    bool isAway = false;
    bool startFails = false;

    /// Hands over what is under way, in its order.
    void deliver();
    void deliver(std::string_view frame);
};

class FakeBus final : public RoomBus {
public:
    explicit FakeBus(Exchange& exchange) : exchange_(exchange) {}

    void start(Receiver receiver) override {
        if (exchange_.startFails) {
            throw std::runtime_error("no way there");
        }
        receiver_ = std::move(receiver);
        exchange_.buses.push_back(this);
        ++exchange_.started;
    }
    void stop() noexcept override {
        std::erase(exchange_.buses, this);
        ++exchange_.stopped;
    }
    bool publish(std::string_view frame) noexcept override {
        if (exchange_.isAway) {
            return false;
        }
        exchange_.frames.emplace_back(frame);
        return true;
    }
    void take(std::string_view frame) const { receiver_(frame); }

private:
    Exchange& exchange_;
    Receiver receiver_;
};

void Exchange::deliver() {
    for (; !frames.empty(); frames.pop_front()) {
        deliver(frames.front());
    }
}

void Exchange::deliver(std::string_view frame) {
    for (const FakeBus* bus : buses) {
        bus->take(frame);
    }
}

/// A process with rooms, and clients in them. What a client says goes to all in its room but itself.
class Process {
public:
    explicit Process(Exchange& exchange) : rooms_(std::make_unique<FakeBus>(exchange)) {
        app_.webSocket("/{room}", [rooms = rooms_](Request& request, SocketOpening& opening) {
            const Room room = rooms[request.path("room")];
            opening.accept()
                .onOpen([room](Socket& socket) {
                    room.add(socket);
                    socket.send("in");
                })
                .onText([room](Socket& socket, std::string_view text) {
                    socket.send(std::to_string(room.send(text, socket)));
                });
        });
        client_.emplace(app_);
    }

    TestSocket enter(const std::string& room) {
        TestSocket socket = client_->webSocket("/" + room);
        EXPECT_EQ(socket.receive(), "in");
        return socket;
    }
    const Rooms& rooms() const { return rooms_; }

private:
    Rooms rooms_;
    App app_;
    std::optional<TestClient> client_;
};

std::string frameOf(char process, std::uint64_t number, std::string_view message, bool isBinary = false) {
    RoomOrigin origin;
    origin.fill(process);
    return writeRoomFrame({origin, number, isBinary, "tea", message});
}

} // namespace

TEST(RoomFrame, IsReadAsItWasWritten) {
    RoomOrigin origin;
    for (std::size_t i = 0; i < origin.size(); ++i) {
        origin[i] = static_cast<char>(0xF0 + i);
    }
    for (const bool isBinary : {false, true}) {
        std::string bytes =
            writeRoomFrame({origin, 0x0102030405060708, isBinary, "a room", std::string_view("\0\xFF", 2)});
        EXPECT_EQ(bytes.substr(17, 8), std::string_view("\1\2\3\4\5\6\7\x8", 8));
        setRoomFrameNumber(bytes, 0xF1F2F3F4F5F6F7F8);
        const std::optional<RoomFrame> read = readRoomFrame(bytes);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->origin, origin);
        EXPECT_EQ(read->number, 0xF1F2F3F4F5F6F7F8);
        EXPECT_EQ(read->isBinary, isBinary);
        EXPECT_EQ(read->room, "a room");
        EXPECT_EQ(read->message, std::string_view("\0\xFF", 2));
    }
    EXPECT_TRUE(readRoomFrame(writeRoomFrame({})));
}

TEST(RoomFrame, WhatIsNoneIsNotRead) {
    const std::string frame = writeRoomFrame({{}, 1, false, "tea", ""});
    ASSERT_TRUE(readRoomFrame(frame));
    for (std::size_t size = 0; size < frame.size(); ++size) {
        EXPECT_FALSE(readRoomFrame(std::string_view(frame).substr(0, size))) << size;
    }
    std::string other = frame;
    other[0] = 2;
    EXPECT_FALSE(readRoomFrame(other)) << "another version";
    other = frame;
    other[25] = 2;
    EXPECT_FALSE(readRoomFrame(other)) << "another kind";
    other = frame;
    other[26] = '\xFF';
    EXPECT_FALSE(readRoomFrame(other)) << "a name that is longer than the frame";
}

TEST(JoinedRooms, MessagesReachTheMembersOfAllProcessesOnce) {
    Exchange exchange;
    Process one(exchange);
    Process two(exchange);
    TestSocket sender = one.enter("tea");
    TestSocket beside = one.enter("tea");
    TestSocket far = two.enter("tea");
    TestSocket elsewhere = two.enter("coffee");
    sender.sendText("hello");
    EXPECT_EQ(sender.receive(), "1") << "those here are counted";
    EXPECT_EQ(beside.receive(), "hello") << "without the bus";
    exchange.deliver();
    EXPECT_EQ(far.receive(), "hello");

    EXPECT_EQ(one.rooms()["tea"].sendBinary(std::array<unsigned char, 2>{0, 255}), 2U);
    exchange.deliver();
    for (TestSocket* socket : {&sender, &beside, &far}) {
        EXPECT_EQ(socket->receive(), std::string("\0\xFF", 2));
    }
    two.rooms()["coffee"].send("last");
    exchange.deliver();
    EXPECT_EQ(elsewhere.receive(), "last") << "nothing before it";
    EXPECT_EQ(one.rooms().traffic().published, 2U);
    EXPECT_EQ(one.rooms().traffic().received, 1U);
    EXPECT_EQ(two.rooms().traffic().received, 2U);
    EXPECT_EQ(two.rooms().traffic().missed, 0U);
}

TEST(JoinedRooms, WhatComesLateOrTwiceIsDroppedAndWhatDoesNotComeIsCounted) {
    Exchange exchange;
    Process process(exchange);
    TestSocket socket = process.enter("tea");
    const TestLog log;
    for (const std::string& frame : {frameOf('a', 7, "7"), frameOf('a', 7, "7 again"), frameOf('a', 6, "late"),
                                     frameOf('b', 1, "of b"), frameOf('a', 8, "8"), frameOf('a', 11, "11")}) {
        exchange.deliver(frame);
    }
    for (const char* text : {"7", "of b", "8", "11"}) {
        EXPECT_EQ(socket.receive(), text);
    }
    EXPECT_EQ(process.rooms().traffic().received, 4U);
    EXPECT_EQ(process.rooms().traffic().missed, 2U)
        << "9 and 10; of 1 to 6 nobody knows whether they are meant for here";
    EXPECT_EQ(log.texts(qlLogType::Failure, "2 messages of another process for rooms did not come").size(), 1U);
}

TEST(JoinedRooms, BusThatIsAwayKeepsNobodyHereFromTheirMessages) {
    Exchange exchange;
    Process one(exchange);
    Process two(exchange);
    TestSocket here = one.enter("tea");
    TestSocket far = two.enter("tea");
    one.rooms()["tea"].send("first");
    exchange.isAway = true;
    EXPECT_EQ(one.rooms()["tea"].send("here alone"), 1U);
    exchange.isAway = false;
    one.rooms()["tea"].send("back");
    exchange.deliver();
    for (const char* text : {"first", "here alone", "back"}) {
        EXPECT_EQ(here.receive(), text);
    }
    EXPECT_EQ(far.receive(), "first");
    EXPECT_EQ(far.receive(), "back");
    EXPECT_EQ(one.rooms().traffic().refused, 1U);
    EXPECT_EQ(two.rooms().traffic().missed, 1U);
}

TEST(JoinedRooms, WhatIsNoMessageIsDroppedAndToldOnce) {
    Exchange exchange;
    Process process(exchange);
    TestSocket socket = process.enter("tea");
    const TestLog log;
    exchange.deliver("nonsense");
    exchange.deliver(frameOf('a', 1, "\xFF"));
    exchange.deliver(frameOf('a', 2, "\xFF", true));
    EXPECT_EQ(socket.receive(), "\xFF") << "bytes may be any";
    EXPECT_EQ(process.rooms().traffic().malformed, 2U);
    EXPECT_EQ(log.texts(qlLogType::Failure, "is no message of this version").size(), 1U);
}

TEST(JoinedRooms, TextThatIsNoneIsRefusedBeforeAnybodyGetsIt) {
    Exchange exchange;
    const Rooms rooms(std::make_unique<FakeBus>(exchange));
    EXPECT_THROW(rooms["tea"].send("\xFF"), std::invalid_argument);
    EXPECT_TRUE(exchange.frames.empty());
}

TEST(JoinedRooms, AreNotMadeByWhatComes) {
    Exchange exchange;
    const Rooms rooms(std::make_unique<FakeBus>(exchange));
    exchange.deliver(frameOf('a', 1, "nobody is here"));
    EXPECT_EQ(rooms.count(), 0U);
    EXPECT_EQ(rooms.traffic().received, 1U);
}

TEST(JoinedRooms, StayJoinedAsLongAsARoomOfThemIsHeld) {
    Exchange exchange;
    std::optional<Rooms> rooms(std::make_unique<FakeBus>(exchange));
    std::optional<Room> room = (*rooms)["tea"];
    std::optional<Room> copy = room;
    rooms.reset();
    room.reset();
    EXPECT_EQ(copy->send("still"), 0U);
    EXPECT_EQ(exchange.frames.size(), 1U);
    EXPECT_EQ(exchange.stopped, 0);
    copy.reset();
    EXPECT_EQ(exchange.stopped, 1);
}

TEST(JoinedRooms, GoOnceNobodyStandsForThem) {
    Exchange exchange;
    const Rooms rooms(std::make_unique<FakeBus>(exchange));
    std::optional<Room> room = rooms["tea"];
    EXPECT_EQ(rooms.count(), 1U);
    room.reset();
    EXPECT_EQ(rooms.count(), 0U);
}

TEST(JoinedRooms, TakeABusThatStarts) {
    EXPECT_THROW(Rooms(nullptr), std::invalid_argument);
    Exchange exchange;
    exchange.startFails = true;
    EXPECT_THROW(Rooms(std::make_unique<FakeBus>(exchange)), std::runtime_error);
    EXPECT_EQ(exchange.stopped, 0) << "it had not started";
}

TEST(JoinedRooms, ProcessesThatCameAndWentDoNotAddUp) {
    Exchange exchange;
    const Rooms rooms(std::make_unique<FakeBus>(exchange));
    const auto send = [&](std::size_t process, std::uint64_t number) {
        RoomOrigin origin{};
        origin[0] = static_cast<char>(process & 0xFFU);
        origin[1] = static_cast<char>(process >> 8U);
        exchange.deliver(writeRoomFrame({origin, number, false, "tea", ""}));
    };
    for (std::size_t process = 0; process < RoomLink::MostOrigins; ++process) {
        send(process, 5);
    }
    send(0, 6);
    send(RoomLink::MostOrigins, 5);
    // The first was heard of since; the second has been silent for longest, and is somebody new.
    send(0, 6);
    EXPECT_EQ(rooms.traffic().received, RoomLink::MostOrigins + 2);
    send(1, 5);
    EXPECT_EQ(rooms.traffic().received, RoomLink::MostOrigins + 3);
}

TEST(Rooms, WithoutABusHaveNoTraffic) {
    const Rooms rooms;
    rooms["tea"].send("nobody hears it");
    const RoomTraffic traffic = rooms.traffic();
    EXPECT_EQ(traffic.published + traffic.refused + traffic.received + traffic.missed + traffic.malformed, 0U);
}
