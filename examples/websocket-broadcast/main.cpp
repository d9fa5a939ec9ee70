// Sends every WebSocket message to all connections. Who takes less than it is sent is closed before what waits for it
// has grown beyond a bound.

#include <vireo/app.h>

#include <cstdlib>
#include <span>
#include <string_view>

int main(int argc, char** argv) {
    const vireo::Room room;
    vireo::App app;
    app.webSocket("/", [room](vireo::Request&, vireo::SocketOpening& opening) {
        opening.accept()
            .onOpen([room](vireo::Socket& socket) { room.add(socket); }) // it leaves by itself
            .onText([room](vireo::Socket&, std::string_view text) { room.send(text); })
            .onBinary([room](vireo::Socket&, std::span<const unsigned char> bytes) { room.sendBinary(bytes); });
    });
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
