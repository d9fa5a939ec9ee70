// SPDX-License-Identifier: MIT
#pragma once

#include <microhttpd.h>

namespace ql::impl {

/// Why a response was cut short, in a word; null when it was not.
const char* lossReason(MHD_RequestTerminationCode code);

} // namespace ql::impl
