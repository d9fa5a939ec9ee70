#include <vireo/app.h>

int main() {
    vireo::App app;
    app.get("/plants/{name}", [](vireo::Request& request, vireo::Response& response) {
        response.text("Has anybody watered the " + request.path("name") + "?\n");
    });
    return app.run({.port = 8181});
}
