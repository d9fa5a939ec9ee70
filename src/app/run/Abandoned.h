// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace vireo::impl {

class Runner;

/// Runs whose App was destroyed by one of the functions that it had been given: such a function cannot wait for its
/// own end. Somebody else does, as soon as there is an occasion: for each of them five seconds at most, since the
/// function may never return.
class Abandoned {
public:
    /// Takes over a run that is to end, and joins it at the end of the process at the latest.
    static void Add(std::shared_ptr<Runner> runner);
    /// Joins those that have been added, but for one whose function runs on this very thread.
    static void Join();
};

} // namespace vireo::impl
