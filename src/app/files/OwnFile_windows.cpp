#include "app/files/OwnFile.h"

#include "app/files/FileCalls_windows.h"

#include <algorithm>
#include <cstddef>

namespace vireo::impl {

namespace {

constexpr std::size_t MostAtOnce = std::size_t{1} << 30U;

} // namespace

OwnFile::~OwnFile() {
    if (isOpen()) {
        ::CloseHandle(handleOf(*this));
    }
}

bool OwnFile::readAt(std::uint64_t offset, std::span<char> bytes) const {
    while (!bytes.empty()) {
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(offset);
        place.OffsetHigh = static_cast<DWORD>(offset >> 32U);
        const auto size = static_cast<DWORD>((std::min)(bytes.size(), MostAtOnce));
        DWORD read = 0;
        if (::ReadFile(handleOf(*this), bytes.data(), size, &read, &place) == 0 || read == 0) {
            return false;
        }
        offset += read;
        bytes = bytes.subspan(read);
    }
    return true;
}

} // namespace vireo::impl
