#include "frame/InvalidArgument.h"

#include <stdexcept>

namespace ql::impl {

void throwInvalidArgument(const std::string& what) {
    throw std::invalid_argument(what);
}

} // namespace ql::impl
