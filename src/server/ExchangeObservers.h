// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

namespace ql::http {
class ExchangeObserver;
}

namespace ql::impl {

struct ExchangeRecordData;

/// A server's observers, in the order in which they are told; none is null.
using ExchangeObservers = std::vector<std::shared_ptr<http::ExchangeObserver>>;

/// Tells each observer of an exchange that has ended; when one fails, that is logged and the others are told all the
/// same. The caller holds no lock.
/// @param data not null, and not changed any more.
void tellObservers(const ExchangeObservers& observers, std::shared_ptr<const ExchangeRecordData> data) noexcept;

} // namespace ql::impl
