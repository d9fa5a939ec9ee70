// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/HttpError.h"

#include <string>
#include <utility>
#include <vector>

namespace vireo::impl {

struct HttpErrorData {
    int status = 500;
    std::string text;
    std::vector<std::pair<std::string, std::string>> headers;
};

} // namespace vireo::impl
