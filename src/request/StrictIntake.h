// SPDX-License-Identifier: MIT
#pragma once

#include "request/StrictHead.h"

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

/// A head that strict HTTP serves.
struct StrictHead {
    RequestHead head;
    HeadVerdict verdict;
};

/// Files such a head: as browsers mean it, and the same for every version of the engine. Arguments of the query and
/// cookies may be any UTF-8; a cookie that is none is left out alone.
/// @throws std::bad_alloc; what was filed before stays.
void fileStrictHead(HttpBaseRequest& request, StrictHead&& strict);

/// Parses a head that is kept as it came the same way, unless somebody has. What there is no memory for is missing,
/// which the object says. Any thread.
void parseKeptHead(HttpBaseRequest& request) noexcept;

} // namespace ql::impl
