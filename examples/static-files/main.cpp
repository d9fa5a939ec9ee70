// Serves the files below a directory: with ranges, so that downloads resume and films can be wound, and with what
// browsers and proxies need for their caches: tags, times and the conditions on them.
//
//     vireo-static-files 8181 DIRECTORY

#include <vireo/app.h>

#include <cstdlib>
#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    try {
        vireo::App app;
        app.before([](vireo::Request& /*request*/, vireo::Response& response) {
            response.header("X-Content-Type-Options", "nosniff");
        });
        app.files("/", argc > 2 ? argv[2] : ".");
        return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
    } catch (const std::exception& error) {
        std::cerr << "static-files: " << error.what() << std::endl;
        return 1;
    }
}
