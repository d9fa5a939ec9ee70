#include "vireo/support/Reserve.h"

namespace ql::impl {

Reserve::Reserve() = default;
Reserve::~Reserve() = default;

} // namespace ql::impl
