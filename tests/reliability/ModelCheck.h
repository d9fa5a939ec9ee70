#pragma once

#include <stdexcept>

namespace vireotest {

/// Ends the run of a model when the real thing did something else: fails the test, and lets a fuzzer keep the input.
inline void expectModel(bool holds, const char* what) {
    if (!holds) {
        throw std::logic_error(what);
    }
}

} // namespace vireotest
