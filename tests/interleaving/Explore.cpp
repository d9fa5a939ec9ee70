#include "interleaving/Explore.h"

#include "support/Interleavings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <vector>

namespace vireotest {

namespace {

/// The case, which is the first thread of each run, and what is wrong when it is over.
Interleavings::Case around(const ThreadedCase& threadedCase) {
    return [&threadedCase] {
        return std::vector<Interleavings::Body>{[&threadedCase] {
            threadedCase();
            if (testing::Test::HasFailure()) {
                Interleavings::fail("an expectation failed");
            }
        }};
    };
}

} // namespace

std::uint64_t exploreAll(const ThreadedCase& threadedCase, std::size_t preemptions) {
    return Interleavings::all(around(threadedCase), preemptions, Interleavings::OnFailure::EndProcess).runs;
}

std::uint64_t exploreRandomly(const ThreadedCase& threadedCase, std::uint64_t runs) {
    const char* const wanted = std::getenv("VIREO_SEED");
    const auto seed = wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : std::random_device()();
    const char* const factor = std::getenv("VIREO_INTERLEAVINGS");
    const std::uint64_t times = factor != nullptr ? std::strtoul(factor, nullptr, 10) : 1;
    return Interleavings::random(around(threadedCase), wanted != nullptr ? 1 : runs * times,
                                 static_cast<std::uint32_t>(seed), Interleavings::OnFailure::EndProcess)
        .runs;
}

void expectNoTimeHasPassed() {
    if (Interleavings::nowNs() != 0) {
        Interleavings::fail("somebody waited for the time");
    }
}

} // namespace vireotest
