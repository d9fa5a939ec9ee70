#include "support/TestFile.h"

#include <stdexcept>

#include <windows.h>

namespace vireotest {

std::uint64_t openForReading(const std::filesystem::path& path) {
    const HANDLE file =
        ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("cannot open " + path.string());
    }
    return reinterpret_cast<std::uintptr_t>(file);
}

bool isOpen(const std::filesystem::path& path) {
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return ::GetLastError() == ERROR_SHARING_VIOLATION;
    }
    ::CloseHandle(file);
    return false;
}

void setModified(const std::filesystem::path& path, std::int64_t seconds) {
    constexpr std::int64_t EpochSeconds = 11644473600; // from 1601 to 1970
    constexpr std::int64_t UnitsPerSecond = 10000000;
    const auto units = static_cast<std::uint64_t>((seconds + EpochSeconds) * UnitsPerSecond);
    const FILETIME time{static_cast<DWORD>(units), static_cast<DWORD>(units >> 32U)};
    const HANDLE file = ::CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    const bool isSet = file != INVALID_HANDLE_VALUE && ::SetFileTime(file, nullptr, nullptr, &time) != 0;
    if (file != INVALID_HANDLE_VALUE) {
        ::CloseHandle(file);
    }
    if (!isSet) {
        throw std::runtime_error("cannot set the time of " + path.string());
    }
}

} // namespace vireotest
