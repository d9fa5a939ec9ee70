#include "engine/FileBody.h"

#include <WindowsHeaders.h>

#include <algorithm>

namespace ql::impl {

namespace {

HANDLE handleOf(std::uint64_t file) {
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(file));
}

} // namespace

FileBody::~FileBody() {
    if (file_ != None) {
        ::CloseHandle(handleOf(file_));
    }
}

std::size_t FileBody::read(std::uint64_t position, char* buffer, std::size_t max, int& error) const {
    const std::uint64_t from = offset_ + position;
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(from);
    place.OffsetHigh = static_cast<DWORD>(from >> 32U);
    const auto size = static_cast<DWORD>((std::min)(static_cast<std::uint64_t>(max), size_ - position));
    DWORD copied = 0;
    if (::ReadFile(handleOf(file_), buffer, size, &copied, &place) != 0) {
        error = 0;
        return copied;
    }
    // The end is an error where the place is given.
    const DWORD reason = ::GetLastError();
    error = reason == ERROR_HANDLE_EOF ? 0 : static_cast<int>(reason);
    return 0;
}

int FileBody::descriptor() const {
    return -1;
}

} // namespace ql::impl
