#include "plants.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace {
/// The first line of a file.
std::string lineOf(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    return std::getline(file, line) ? line : throw std::runtime_error(path + " is missing or empty");
}
} // namespace

int main(int argc, char** argv) try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string& page = arguments.at(0);
    const std::string& data = arguments.at(1);
    const std::string& secrets = arguments.at(2);
    const bool hasTls = std::filesystem::exists(secrets + "/chain.pem");
    std::filesystem::create_directories(data + "/pictures");
    Board board;
    vireo::App app; // last: it goes before what its handlers refer to
    addRoutes(app, board,
              {.page = page, .data = data, .password = lineOf(secrets + "/password"), .key = lineOf(secrets + "/key")});
    return app.run({.port = 8181,
                    .certificate = hasTls ? secrets + "/chain.pem" : "",
                    .key = hasTls ? secrets + "/key.pem" : "",
                    .accessLog = "-"});
} catch (const std::exception& error) {
    std::cerr << "plants: " << error.what() << std::endl;
    return 1;
}
