#pragma once

#include "vireo/support/HashHelper.h"

#include <string>

namespace skeleton {

/// The digest of all that was added, in hexadecimal; then the hash starts a new message.
std::string hexadecimalDigest(ql::HashHelper& hash);

} // namespace skeleton
