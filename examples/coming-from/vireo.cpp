#include <vireo/app.h>
#include <vireo/app/Json.h>

#include <cstdlib>

int main(int argc, char** argv) {
    vireo::App app;
    app.get("/hello/{name}", [](vireo::Request& request, vireo::Response& response) {
        response.json({{"hello", request.path("name")}});
    });
    app.put("/upload",
            [](vireo::Request& request, vireo::Response& response) {
                response.text(std::to_string(request.body().text().size()) + " bytes\n");
            })
        .maxBody(1000000);
    app.webSocket("/echo", [](vireo::Request&, vireo::SocketOpening& opening) {
        opening.accept().onText([](vireo::Socket& socket, std::string_view text) { socket.send(text); });
    });
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
