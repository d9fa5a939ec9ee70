#include "NewFile.h"

#include "vireo/support/qlRandomUtils.h"

#include <cstdint>
#include <system_error>

namespace {

/// No two uploads have the same, also of programs that share the directory.
std::string temporaryName() {
    std::uint64_t number = 0;
    qlRandomUtils::Rand(reinterpret_cast<char*>(&number), sizeof(number));
    return std::to_string(number) + ".part";
}

} // namespace

NewFile::NewFile(const std::filesystem::path& directory) : path_(directory / temporaryName()) {
    stream_.exceptions(std::ios::failbit | std::ios::badbit);
    stream_.open(path_, std::ios::binary);
}

NewFile::~NewFile() {
    std::error_code error;
    stream_.exceptions(std::ios::goodbit);
    stream_.close(); // what is open cannot be removed everywhere
    std::filesystem::remove(path_, error);
}

void NewFile::write(const char* data, std::size_t size) {
    stream_.write(data, static_cast<std::streamsize>(size));
}

void NewFile::keepAs(const std::string& name) {
    stream_.close(); // the last bytes may fail, too
    std::filesystem::rename(path_, path_.parent_path() / name);
}
