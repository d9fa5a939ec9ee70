#pragma once

#include <cstdint>

namespace vireotest {

/// A port that nobody listens on, below the range that the system gives to clients. Differs between test processes that
/// run at the same time.
std::uint16_t freePort();

} // namespace vireotest
