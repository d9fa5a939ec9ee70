#include "vireo/Vireo.h"

#include "engine/EngineVersion.h"
#include "frame/NeverDestroyed.h"
#include "frame/SocketSystem.h"
#include "frame/VersionNumbers.h"
#include "streams/ChunkList.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/LibInitCounter.h"
#include "vireo/support/SupportLibraries.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlMutex.h"

#include <array>
#include <cstddef>
#include <string>

namespace ql {
namespace {

constexpr const char* EngineName = "libmicrohttpd";

/// One thing to bring up, or to leave as it is with an exception, and how it is taken down again.
struct Step {
    void (*up)();
    void (*down)();
};

constexpr std::array<Step, 5> Steps{{
    {[] {
         if (!impl::startSocketSystem()) {
             qlLogObject(qlLogType::Failure) << "Failed to start the socket system";
         }
     },
     impl::stopSocketSystem},
    {[] { initializeTanager(std::string()); }, terminateTanager},
    {json::initializeQlPipit, json::terminateQlPipit},
    {HttpBaseRequest::InitRequestTypes,
     [] {
         HttpBaseRequest::ClearRequestTypes();
         impl::freeSpareChunks();
     }},
    {[] { impl::RegisterThirdPartyLibVersionInfo(EngineName, impl::engineVersion()); },
     [] { impl::UnRegisterThirdPartyLibVersionInfo(EngineName); }},
}};

/// @param count how many of the steps are up.
void takeDown(std::size_t count) {
    while (count > 0) {
        --count;
        Steps[count].down();
    }
}

void bringUp() {
    std::size_t count = 0;
    try {
        for (; count < Steps.size(); ++count) {
            Steps[count].up();
        }
    } catch (...) {
        takeDown(count);
        throw;
    }
}

/// Held while the library comes up or goes down.
qlMutex& lifeMutex() {
    static impl::NeverDestroyed<qlMutex> mutex;
    return *mutex;
}

impl::LibInitCounter& initCounter() {
    static impl::NeverDestroyed<impl::LibInitCounter> counter("vireo", true);
    return *counter;
}

} // namespace

void initializeVireo() {
    const qlMutexLocker locker(lifeMutex());
    if (!IsVireoInitialized()) {
        bringUp();
    }
    initCounter().incrementInitCounter();
}

void terminateVireo() {
    const qlMutexLocker locker(lifeMutex());
    if (initCounter().decrementInitCounter()) {
        takeDown(Steps.size());
    }
}

bool IsVireoInitialized() {
    return initCounter().isInitialized();
}

} // namespace ql

#define VIREO_TEXT_OF(value) #value
#define VIREO_EXPANDED_TEXT_OF(value) VIREO_TEXT_OF(value)

#define VIREO_MAJOR_MINOR VIREO_EXPANDED_TEXT_OF(VIREO_VERSION_MAJOR) "." VIREO_EXPANDED_TEXT_OF(VIREO_VERSION_MINOR)
#define VIREO_MAJOR_MINOR_RELEASE VIREO_MAJOR_MINOR "." VIREO_EXPANDED_TEXT_OF(VIREO_VERSION_RELEASE)
#define VIREO_WITH_REVISION VIREO_MAJOR_MINOR_RELEASE "." VIREO_EXPANDED_TEXT_OF(VIREO_VERSION_REVISION)
#define VIREO_WITH_COMMIT_ID VIREO_WITH_REVISION " #" VIREO_VERSION_COMMIT_ID
#define VIREO_YEAR_MONTH VIREO_EXPANDED_TEXT_OF(VIREO_VERSION_YEAR) "-" VIREO_EXPANDED_TEXT_OF(VIREO_VERSION_MONTH)

namespace Vireo {

std::uint32_t Version::GetMajor() {
    return VIREO_VERSION_MAJOR;
}

std::uint32_t Version::GetMinor() {
    return VIREO_VERSION_MINOR;
}

std::uint32_t Version::GetRelease() {
    return VIREO_VERSION_RELEASE;
}

std::uint32_t Version::GetRevision() {
    return VIREO_VERSION_REVISION;
}

const char* Version::GetCommitId() {
    return VIREO_VERSION_COMMIT_ID;
}

std::uint16_t Version::GetYear() {
    return VIREO_VERSION_YEAR;
}

std::uint8_t Version::GetMonth() {
    return VIREO_VERSION_MONTH;
}

bool Version::IsBeta() {
    return false;
}

bool Version::IsDebug() {
    return false;
}

bool Version::IsDev() {
    return false;
}

const char* Version::GetDescStringMajorMinor(bool) {
    return VIREO_MAJOR_MINOR;
}

const char* Version::GetDescStringMajorMinorRelease(bool) {
    return VIREO_MAJOR_MINOR_RELEASE;
}

const char* Version::GetDescStringMajorMinorReleaseRevision(bool, bool withCommitId) {
    return withCommitId ? VIREO_WITH_COMMIT_ID : VIREO_WITH_REVISION;
}

const char* Version::GetDescStringMajorMinorReleaseRevisionDate() {
    return VIREO_WITH_COMMIT_ID " " VIREO_YEAR_MONTH;
}

} // namespace Vireo
