// SPDX-License-Identifier: MIT
#pragma once

#include "app/files/OwnFile.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <windows.h>

namespace vireo::impl {

/// The system's word for what OwnFile::get() and take() give.
inline HANDLE handleOf(std::uint64_t file) {
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(file));
}
inline HANDLE handleOf(const OwnFile& file) {
    return handleOf(file.get());
}

/// UTF-8 as the system's calls take it.
inline std::wstring wideOf(std::string_view text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide(static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0)),
                      L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), static_cast<int>(wide.size()));
    return wide;
}

/// And back.
inline std::string narrowOf(std::wstring_view text) {
    const int size = static_cast<int>(text.size());
    std::string narrow(
        static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr)),
        '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), static_cast<int>(narrow.size()), nullptr,
                          nullptr);
    return narrow;
}

} // namespace vireo::impl
