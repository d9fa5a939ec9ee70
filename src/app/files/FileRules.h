// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/FileOptions.h"

#include <functional>
#include <map>
#include <string>

namespace vireo::impl {

/// What FileOptions say.
struct FileRules {
    static const FileRules& of(const FileOptions& options) { return *options.rules_; }

    std::string index = "index.html";
    bool listing = false;
    bool dotFiles = false;
    std::string cacheControl = "no-cache";
    bool precompressed = true;
    /// Media types by extensions in lower case.
    std::map<std::string, std::string, std::less<>> types{};
    std::string fallback{};
};

} // namespace vireo::impl
