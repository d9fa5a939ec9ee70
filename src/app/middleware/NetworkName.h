// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/IpAddress.h"

#include <string>

namespace vireo::impl {

/// What clients of one household have in common: the whole of an IPv4 address, also of one that is written as IPv6, and
/// the first 64 bits of an IPv6 address; "unix:" for none.
std::string networkName(const ql::IpAddress& address);

} // namespace vireo::impl
