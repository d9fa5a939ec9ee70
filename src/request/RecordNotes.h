// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/IpAddress.h"

#include <string>

namespace ql::impl {

/// What an application adds to the record of an exchange. As it stands: nothing.
struct RecordNotes {
    IpAddress forwardedClient;
    std::string requestId;
};

} // namespace ql::impl
