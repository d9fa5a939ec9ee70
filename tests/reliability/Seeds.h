#pragma once

#include "reliability/Choices.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace vireotest {

inline std::string randomBytes(std::uint64_t seed, std::size_t size) {
    std::mt19937_64 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

/// Runs a random test with the choices of `count` seeds, `size` bytes each, or with those of the one seed that the
/// environment variable VIREO_SEED gives: a failure names the seed to set there.
template <typename Run>
void forEachSeed(std::uint64_t count, std::size_t size, Run run) {
    const char* const wanted = std::getenv("VIREO_SEED");
    const std::uint64_t first = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : std::random_device()();
    const std::uint64_t last = wanted != nullptr ? first : first + count - 1;
    for (std::uint64_t seed = first; seed <= last && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("VIREO_SEED=" + std::to_string(seed));
        const std::string bytes = randomBytes(seed, size);
        Choices choices(bytes);
        try {
            run(choices);
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    }
}

} // namespace vireotest
