// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace vireo::impl {

/// How links within a FileRoot are kept from leading out of it.
enum class LinkPolicy : std::uint8_t {
    Beneath, ///< the system follows those alone that lead to what is beneath the root
    None,    ///< none is followed: the system knows no other way
};

/// What the system can do, as it has shown. A test may take it back.
extern std::atomic<LinkPolicy> linkPolicy;

/// Whether an error of openat2() says that the system has no such call, or lets nobody make it.
/// @param directory an open one.
bool isOpenat2Missing(int directory, int error);

/// Whether a file could not be opened for want of something, rather than because it is not there for this process.
bool isShortage(int error);

} // namespace vireo::impl
