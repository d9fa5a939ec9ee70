#include "app/encoding/Brotli.h"

namespace vireo::impl {

bool hasBrotli() {
    return false;
}

std::unique_ptr<BodyEncoder> makeBrotliEncoder(int /*level*/) {
    return nullptr;
}

} // namespace vireo::impl
