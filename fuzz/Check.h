#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace vireofuzz {

/// Ends the program, for the fuzzing engine to keep the input, when what must hold doesn't.
inline void check(bool holds, std::string_view what) {
    if (!holds) {
        std::fprintf(stderr, "fuzz: %.*s\n", static_cast<int>(what.size()), what.data());
        std::abort();
    }
}

} // namespace vireofuzz

/// What the fuzzing engine calls for each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
