#include <vireo/app.h>

int main() {
    vireo::App app;
    app.get("/hello/{name}", [](vireo::Request& request, vireo::Response& response) {
        response.text("hello " + request.path("name") + "\n");
    });
    return app.run({.port = 8181});
}
