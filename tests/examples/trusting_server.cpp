// Trusts the proxy of reverse-proxy.sh, and answers with what it makes of its word.
// usage: trusting_server PORT

#include <vireo/app.h>

#include <cstdlib>

int main(int argc, char** argv) {
    const auto tell = [](vireo::Request& request, vireo::Response& response) {
        response.text(request.client() + " " + request.scheme() + " " + request.host() + " " + request.id());
    };
    vireo::App app;
    app.trustProxies({"127.0.0.1"});
    app.get("/", tell);
    app.get("/ws", tell);
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
