#include "app/body/TemporaryFile.h"

#include "app/files/FileCalls_windows.h"
#include "app/kernel/Throw.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace vireo::impl {

namespace {

constexpr std::size_t MostAtOnce = std::size_t{1} << 30U;

int lastError() {
    return static_cast<int>(::GetLastError());
}

} // namespace

bool TemporaryFile::create() {
    const HANDLE file = ::CreateFileW(wideOf(path_).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        file_ = OwnFile(reinterpret_cast<std::uintptr_t>(file));
        return true;
    }
    if (const int error = lastError(); error != ERROR_FILE_EXISTS) {
        throwSystemError(error, "cannot make a file in " + directoryOf(path_));
    }
    return false;
}

void TemporaryFile::writeSome(std::string_view& bytes) {
    const auto size = static_cast<DWORD>((std::min)(bytes.size(), MostAtOnce));
    DWORD written = 0;
    if (::WriteFile(handleOf(file_), bytes.data(), size, &written, nullptr) == 0) {
        throwSystemError(lastError(), "cannot write " + path_);
    }
    bytes.remove_prefix(written);
}

void TemporaryFile::openAgain() {
    const HANDLE file = ::CreateFileW(wideOf(path_).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        throwSystemError(lastError(), "cannot read " + path_);
    }
    file_ = OwnFile(reinterpret_cast<std::uintptr_t>(file));
}

TemporaryFile::Move TemporaryFile::move(const std::string& path) {
    if (::MoveFileExW(wideOf(path_).c_str(), wideOf(path).c_str(), MOVEFILE_REPLACE_EXISTING) != 0) {
        return Move::Done;
    }
    const int error = lastError();
    if (error != ERROR_NOT_SAME_DEVICE) {
        throwSystemError(error, "cannot keep a file as " + path);
    }
    return Move::OtherFileSystem;
}

void TemporaryFile::close() {
    if (file_.isOpen() && ::CloseHandle(handleOf(file_.take())) == 0) {
        const int error = lastError();
        // Its end may be missing: nobody is to keep it later either.
        remove();
        throwSystemError(error, "cannot write " + path_);
    }
}

void TemporaryFile::remove() noexcept {
    try {
        static_cast<void>(::DeleteFileW(wideOf(path_).c_str()));
    } catch (...) {
        // Without memory for its name it stays.
    }
}

std::string temporaryDirectory() {
    std::array<wchar_t, MAX_PATH + 2> wide{};
    const DWORD length = ::GetTempPathW(static_cast<DWORD>(wide.size()), wide.data());
    return narrowOf({wide.data(), length});
}

} // namespace vireo::impl
