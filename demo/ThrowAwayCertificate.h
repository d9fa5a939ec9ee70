#pragma once

#include <string>

namespace demo {

/// A certificate for this machine that nobody trusts, and its key, in PEM.
struct ThrowAwayCertificate {
    std::string chainPem;
    std::string keyPem;
};

/// Makes one that is good for a day.
/// @throws std::runtime_error when it cannot be made.
ThrowAwayCertificate makeThrowAwayCertificate();

} // namespace demo
