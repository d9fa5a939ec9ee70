#include "vireo/support/LibInitCounter.h"

#include "frame/NeverDestroyed.h"

namespace ql::impl {
namespace {

struct VersionList {
    qlMutex mutex;
    std::map<std::string, std::string> versions QL_GUARDED_BY(mutex);
};

VersionList& versionList() {
    static NeverDestroyed<VersionList> list;
    return *list;
}

} // namespace

LibInitCounter::LibInitCounter(const char* name, bool counted) : name_(name), counted_(counted) {}

bool LibInitCounter::incrementInitCounter() {
    const qlMutexLocker locker(mutex_);
    const std::uint32_t count = count_.load();
    if (count == 0 || counted_) {
        count_.store(count + 1);
    }
    return count == 0;
}

bool LibInitCounter::decrementInitCounter() {
    const qlMutexLocker locker(mutex_);
    const std::uint32_t count = count_.load();
    if (count == 0) {
        return false;
    }
    count_.store(count - 1);
    return count == 1;
}

bool LibInitCounter::isInitialized() const {
    return count_.load() > 0;
}

void RegisterThirdPartyLibVersionInfo(const char* name, const char* version) {
    VersionList& list = versionList();
    const qlMutexLocker locker(list.mutex);
    list.versions.insert_or_assign(name, version);
}

void UnRegisterThirdPartyLibVersionInfo(const char* name) {
    VersionList& list = versionList();
    const qlMutexLocker locker(list.mutex);
    list.versions.erase(name);
}

std::map<std::string, std::string> GetThirdPartyLibVersionInfos() {
    VersionList& list = versionList();
    const qlMutexLocker locker(list.mutex);
    return list.versions;
}

} // namespace ql::impl
