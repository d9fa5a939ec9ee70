// Rooms that several processes share: each serves WebSockets, and what anybody sends into a room reaches its members in
// all processes, by Redis. Without Redis each process serves those that are with it.
// usage: vireo-cluster PORT REDIS, which is ADDRESS:PORT or a Unix socket. haproxy.cfg has three of them.

#include "RedisBus.h"

#include <vireo/app.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: vireo-cluster PORT REDIS\n";
        return 2;
    }
    const vireo::Rooms rooms(std::make_unique<RedisBus>(RedisOptions{.place = argv[2], .channel = "vireo-cluster"}));

    vireo::App app;
    app.webSocket("/rooms/{room}", [rooms](vireo::Request& request, vireo::SocketOpening& opening) {
        const vireo::Room room = rooms[request.path("room")];
        opening.accept()
            .onOpen([room](vireo::Socket& socket) {
                room.add(socket);
                socket.send("welcome");
            })
            .onText([room](vireo::Socket&, std::string_view text) { room.send(text); });
    });
    app.post("/rooms/{room}", [rooms](vireo::Request& request, vireo::Response& response) {
        rooms[request.path("room")].send(request.body().text());
        response.empty();
    });
    // Whether clients may be sent here, which has nothing to do with Redis: one outage there would take all processes
    // out of service here.
    app.health("/ready");
    app.get("/traffic", [rooms](vireo::Request&, vireo::Response& response) {
        const vireo::RoomTraffic traffic = rooms.traffic();
        response.text("published " + std::to_string(traffic.published) + ", refused " +
                      std::to_string(traffic.refused) + ", received " + std::to_string(traffic.received) + ", missed " +
                      std::to_string(traffic.missed) + "\n");
    });
    // The proxy asks each 500 ms, and has time to learn of the end before connections are refused.
    return app.run({.port = std::atoi(argv[1]), .grace = std::chrono::seconds(2)});
}
