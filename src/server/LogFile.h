// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace ql::impl {

/// Makes the file, where there is none, for its owner to write and for its group to read, on systems with such modes:
/// what clients ask for is nobody else's business. Does nothing where that cannot be; who opens the file then learns
/// why.
void makeLogFile(const std::filesystem::path& path);

} // namespace ql::impl
