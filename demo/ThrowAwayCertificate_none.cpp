#include "ThrowAwayCertificate.h"

#include <stdexcept>

namespace demo {

ThrowAwayCertificate makeThrowAwayCertificate() {
    throw std::runtime_error("there is no TLS here");
}

} // namespace demo
