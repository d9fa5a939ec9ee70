#include "plants.h"

#include <exception>
#include <filesystem>
#include <iostream>
#include <vector>

int main(int argc, char** argv) try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string& page = arguments.at(0);
    const std::string& data = arguments.at(1);
    std::filesystem::create_directories(data + "/pictures");
    Board board;
    vireo::App app; // last: it goes before what its handlers refer to
    addRoutes(app, board, page, data);
    return app.run({.port = 8181});
} catch (const std::exception& error) {
    std::cerr << "plants: " << error.what() << std::endl;
    return 1;
}
