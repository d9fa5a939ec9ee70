// usage: consumer-app PORT. Serves with the toolkit until it is interrupted.

#include <vireo/Vireo.h>
#include <vireo/app.h>

#include <cstdlib>

int main(int, char** argv) {
    vireo::App app;
    app.get("/", [](vireo::Request&, vireo::Response& response) {
        response.text(Vireo::Version::GetDescStringMajorMinorRelease(false));
    });
    // Thrown here and caught in the library: both have to mean the same type.
    app.get("/error", [](vireo::Request&, vireo::Response&) { throw vireo::HttpError(418, "no coffee"); });
    return app.run({.port = std::atoi(argv[1])});
}
