#include "support/TestFile.h"

#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>

namespace vireotest {

namespace fs = std::filesystem;

TestDirectory::TestDirectory() {
    std::random_device random;
    do {
        path_ = fs::temp_directory_path() / ("vireo-test-" + std::to_string(random()));
    } while (!fs::create_directory(path_));
}

TestDirectory::~TestDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

fs::path TestDirectory::write(const std::string& name, std::string_view content) const {
    const fs::path path = path_ / fs::path(std::u8string(name.begin(), name.end()));
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
    return path;
}

std::size_t TestDirectory::entries() const {
    return static_cast<std::size_t>(
        std::distance(fs::recursive_directory_iterator(path_), fs::recursive_directory_iterator()));
}

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

} // namespace vireotest
