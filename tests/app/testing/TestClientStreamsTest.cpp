#include "support/WaitUntil.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vireo {
namespace {

TEST(TestClient, ListensToEvents) {
    EventChannel channel(EventOptions().replay(10));
    App app;
    app.get("/events", [&](Request&, Response& response) { response.events(channel); });
    app.get("/none", [](Request&, Response& response) { response.error(403); });
    TestClient client(app);
    TestEvents events = client.events("/events");
    EXPECT_EQ(events.status(), 200);
    ASSERT_TRUE(vireotest::waitUntil([&] { return channel.listeners() == 1; }));
    channel.publish({.data = "one\ntwo", .event = "note", .id = "x"});
    ASSERT_TRUE(events.next());
    EXPECT_EQ(events.data(), "one\ntwo");
    EXPECT_EQ(events.event(), "note");
    EXPECT_EQ(events.id(), "x");
    TestEvents later = client.events("/events", "x");
    channel.publish("three");
    ASSERT_TRUE(later.next());
    EXPECT_EQ(later.data(), "three");
    EXPECT_EQ(later.event(), "message");
    channel.close();
    ASSERT_TRUE(events.next());
    EXPECT_FALSE(events.next());
    TestEvents none = client.events("/none");
    EXPECT_EQ(none.status(), 403);
    EXPECT_FALSE(none.next());
}

TEST(TestClient, SpeaksOverWebSockets) {
    App app;
    app.webSocket("/echo", [](Request& request, SocketOpening& opening) {
        if (request.query("name") == "nobody") {
            opening.refuse(403, "not you");
            return;
        }
        if (!opening.subprotocols().empty()) {
            opening.subprotocol(opening.subprotocols().back());
        }
        opening.accept()
            .onText([](Socket& socket, std::string_view text) {
                if (text == "bye") {
                    socket.close(4001, "bye");
                } else {
                    socket.ping();
                    socket.send(text);
                }
            })
            .onBinary([](Socket& socket, std::span<const unsigned char> bytes) { socket.sendBinary(bytes); });
    });
    TestClient client(app);
    const TestResponse refused = client.webSocket("/echo?name=nobody").answer();
    EXPECT_EQ(refused.status(), 403);
    EXPECT_EQ(refused.body(), "not you\n");
    TestSocket socket = client.webSocket("/echo", TestRequest().header("Sec-WebSocket-Protocol", "a, b"));
    EXPECT_EQ(socket.status(), 101);
    EXPECT_EQ(socket.subprotocol(), "b");
    for (const unsigned int size : {0U, 1U, 125U, 126U, 65535U, 65536U, 300000U}) {
        socket.sendText(std::string(size, 'x'));
        EXPECT_EQ(socket.receive(), std::string(size, 'x')) << size;
    }
    socket.sendBinary("abc");
    EXPECT_EQ(socket.receive(), "abc");
    socket.sendText("bye");
    EXPECT_EQ(socket.receive(), std::nullopt);
    EXPECT_EQ(socket.closeCode(), 4001);
    EXPECT_THROW(socket.sendText("more"), std::runtime_error);
    TestSocket second = client.webSocket("/echo");
    second.close();
    EXPECT_EQ(second.closeCode(), 1000);
}

} // namespace
} // namespace vireo
