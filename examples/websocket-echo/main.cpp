// Sends every WebSocket message back, on whatever path. Browsers reach it through the proxy of ../reverse-proxy, too.

#include <vireo/app.h>

#include <cstdlib>
#include <span>
#include <string_view>

int main(int argc, char** argv) {
    const auto echo = [](vireo::Request&, vireo::SocketOpening& opening) {
        opening.accept()
            .onText([](vireo::Socket& socket, std::string_view text) { socket.send(text); })
            .onBinary([](vireo::Socket& socket, std::span<const unsigned char> bytes) { socket.sendBinary(bytes); });
    };
    vireo::App app;
    app.webSocket("/", echo);
    app.webSocket("/{path:path}", echo);
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
