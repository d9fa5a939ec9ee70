#include <httplib.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

int main(int argc, char** argv) {
    httplib::Server server;
    server.set_payload_max_length(1000000);
    server.Get(R"(/hello/([^/]+))", [](const httplib::Request& request, httplib::Response& response) {
        const nlohmann::json answer{{"hello", request.matches[1].str()}};
        response.set_content(answer.dump(), "application/json");
    });
    server.Put("/upload", [](const httplib::Request& request, httplib::Response& response) {
        response.set_content(std::to_string(request.body.size()) + " bytes\n", "text/plain");
    });
    return server.listen("127.0.0.1", argc > 1 ? std::atoi(argv[1]) : 8181) ? 0 : 1;
}
