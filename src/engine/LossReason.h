// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ExchangeRecord.h"

#include <microhttpd.h>

namespace ql::impl {

/// Why a response was cut short, in a word; null when it was not.
const char* lossReason(MHD_RequestTerminationCode code);

/// The same in the words of a record. The engine's word for most errors is that of writing.
http::ExchangeRecord::Ending endingOf(MHD_RequestTerminationCode code);

} // namespace ql::impl
