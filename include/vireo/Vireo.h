#pragma once

#include "vireo/export.h"

#include <cstdint>

/// Bring-up, take-down and version of the library.

namespace ql {

/// Brings the library up: call it before the first server is started. Calls nest: each wants a terminateVireo() of
/// its own. Any thread, but a first call must not race a last terminateVireo().
VIREO_API void initializeVireo();

/// Takes the library down when it undoes the first initializeVireo(): call it after the last server has stopped and
/// its requests are gone. Without an initialisation it does nothing.
VIREO_API void terminateVireo();

/// True between the first initializeVireo() and the last terminateVireo(). Any thread.
VIREO_API bool IsVireoInitialized();

} // namespace ql

namespace Vireo {

/// The version of the library that runs, which may be newer than the headers compiled against. The texts are static.
/// Any thread, also while the library is not initialised.
struct VIREO_API Version {
    static std::uint32_t GetMajor();
    static std::uint32_t GetMinor();
    static std::uint32_t GetRelease();
    static std::uint32_t GetRevision();
    static const char* GetCommitId();
    static std::uint16_t GetYear();
    /// 1 to 12.
    static std::uint8_t GetMonth();
    static bool IsBeta();
    static bool IsDebug();
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
