// Sends a body of any size as a stream, with back-pressure: writing waits while the client is slow, so that no more
// than a few hundred KiB are ever in memory.
//
//     vireo-download 8181
//     curl 'http://127.0.0.1:8181/?lines=1000000'

#include <vireo/app.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

namespace {

constexpr std::uint64_t MaxLines = 1000000000;
/// "line 0000000000\n"
constexpr std::uint64_t LineBytes = 16;

void writeLines(vireo::Output& out, std::uint64_t count) {
    std::uint64_t number = 0;
    try {
        for (; number < count; ++number) {
            const std::string digits = std::to_string(number);
            out << "line " + std::string(10 - digits.size(), '0') + digits + "\n";
        }
    } catch (const vireo::ClientGone&) {
        std::cout << "ended after " << number * LineBytes << " bytes: lost connection" << std::endl;
        throw;
    }
}

} // namespace

int main(int argc, char** argv) {
    vireo::App app;
    app.get("/", [](vireo::Request& request, vireo::Response& response) {
        const auto count = request.query<std::uint64_t>("lines", 1000);
        if (count > MaxLines) {
            throw vireo::HttpError(400, "lines has to be a number up to " + std::to_string(MaxLines) + "\n");
        }
        // A length lets the client see whether it has everything. Without one the body goes out in chunks.
        response.type("text/plain");
        response.stream(count * LineBytes, [count](vireo::Output& out) { writeLines(out, count); });
    });
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
