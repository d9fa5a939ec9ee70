// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <string>

namespace ql {

/// An error code of the operating system: errno on POSIX, GetLastError() or WSAGetLastError() on Windows.
class VIREO_API SystemError {
public:
    /// @param code errno, GetLastError() or WSAGetLastError(), right after the call that failed.
    explicit SystemError(int code) : code_(code) {}

    /// The code as it was given.
    int getCode() const { return code_; }

    /// The system's own text for the code, without a line end; never empty. Any thread.
    std::string toString() const;

private:
    int code_;
};

} // namespace ql
