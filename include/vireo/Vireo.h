// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>

/// Bring-up, take-down and version of the library.

namespace ql {

/// Brings the library up: call it before the first server is started. Calls nest: each wants a terminateVireo() of
/// its own. Any thread, and any static object of the application.
/// @throws std::bad_alloc when memory is short: everything is as it was before the call.
VIREO_API void initializeVireo();

/// Takes the library down when it undoes the first initializeVireo(): call it after the last server has stopped and
/// its requests are gone. Without an initialisation it does nothing. Any thread, and any static object of the
/// application.
VIREO_API void terminateVireo();

/// True between the first initializeVireo() and the last terminateVireo(). Any thread.
VIREO_API bool IsVireoInitialized();

} // namespace ql

namespace Vireo {

/// The version of the library that runs, which may be newer than the headers compiled against. The texts are static.
/// Any thread, also while the library is not initialised.
struct VIREO_API Version {
    /// 3 of "3.0.0.1559": one of another number is not compatible.
    static std::uint32_t GetMajor();
    /// The first 0: counts additions.
    static std::uint32_t GetMinor();
    /// The second 0: counts mended releases.
    static std::uint32_t GetRelease();
    /// 1559: counts the states of the source, over all versions.
    static std::uint32_t GetRevision();
    /// The state of the source, in hexadecimal.
    static const char* GetCommitId();
    /// The year of the release.
    static std::uint16_t GetYear();
    /// The month of the release, 1 to 12.
    static std::uint8_t GetMonth();
    /// False for a release, as the two below.
    static bool IsBeta();
    /// Whether it is a build for debugging.
    static bool IsDebug();
    /// Whether it is a state of the development.
    static bool IsDev();

    // The first flag of each description is accepted and has no effect.

    /// "3.0"
    static const char* GetDescStringMajorMinor(bool);
    /// "3.0.0"
    static const char* GetDescStringMajorMinorRelease(bool);
    /// "3.0.0.1559", followed by " #" and the commit id when `withCommitId` is true.
    static const char* GetDescStringMajorMinorReleaseRevision(bool, bool withCommitId);
    /// The full text, with year and month: "3.0.0.1559 #5c0e19ab7d42f863 2026-6".
    static const char* GetDescStringMajorMinorReleaseRevisionDate();
};

} // namespace Vireo
