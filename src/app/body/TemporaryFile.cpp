#include "app/body/TemporaryFile.h"

#include "app/files/PathRules.h"
#include "app/kernel/Throw.h"
#include "vireo/support/qlRandomUtils.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace vireo::impl {

namespace {

constexpr std::size_t CopyBytes = 65536;
constexpr std::size_t NameBytes = 12;

std::string freshName() {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::array<char, NameBytes> random{};
    qlRandomUtils::Rand(random.data(), random.size());
    // The dot keeps it out of what file servers show.
    std::string name = ".";
    for (const char c : random) {
        const auto byte = static_cast<unsigned char>(c);
        name.append(1, Digits[byte >> 4U]).append(1, Digits[byte & 15U]);
    }
    return name += ".part";
}

} // namespace

TemporaryFile::TemporaryFile(const std::string& directory, Readers readers) : readers_(readers) {
    const bool hasSeparator = !directory.empty() && PathSeparators.find(directory.back()) != std::string_view::npos;
    const std::string place = directory.empty() || hasSeparator ? directory : directory + "/";
    do {
        path_ = place + freshName();
    } while (!create());
}

TemporaryFile::~TemporaryFile() {
    file_ = OwnFile(); // or it could not be removed everywhere
    if (!isKept_) {
        remove();
    }
}

void TemporaryFile::write(std::string_view bytes) {
    size_ += bytes.size();
    while (!bytes.empty()) {
        writeSome(bytes);
    }
}

void TemporaryFile::keepAs(const std::string& path) {
    // An open file cannot be renamed everywhere, and some file systems tell at the close alone that they have no room.
    close();
    if (move(path) == Move::OtherFileSystem) {
        openAgain();
        TemporaryFile copy(directoryOf(path), readers_);
        copyTo(copy);
        copy.keepAs(path);
        file_ = OwnFile();
        remove();
    }
    isKept_ = true;
    path_ = path;
}

void TemporaryFile::copyTo(TemporaryFile& other) const {
    std::vector<char> block(CopyBytes);
    for (std::uint64_t done = 0; done < size_; done += block.size()) {
        block.resize(static_cast<std::size_t>((std::min)(size_ - done, static_cast<std::uint64_t>(CopyBytes))));
        if (!file_.readAt(done, block)) {
            throwRuntimeError("cannot read " + path_);
        }
        other.write({block.data(), block.size()});
    }
}

std::string directoryOf(const std::string& path) {
    const std::size_t separator = path.find_last_of(PathSeparators);
    return separator == std::string::npos ? "./" : path.substr(0, separator + 1);
}

bool isFileName(std::string_view name) {
    constexpr std::size_t Longest = 255; // of file systems
    return name.size() <= Longest && isPathSegment(name, false);
}

} // namespace vireo::impl
