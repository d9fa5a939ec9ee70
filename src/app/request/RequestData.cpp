#include "app/request/RequestData.h"

#include <algorithm>

namespace vireo::impl {

void* RequestValues::find(const void* key, std::shared_ptr<void> (*make)()) {
    {
        const qlMutexLocker locker(mutex_);
        if (void* const value = look(key)) {
            return value;
        }
    }
    // Somebody else may have been faster; then this one goes, without the lock.
    std::shared_ptr<void> value = make();
    const qlMutexLocker locker(mutex_);
    if (void* const other = look(key)) {
        return other;
    }
    return values_.emplace_back(key, std::move(value)).second.get();
}

void* RequestValues::look(const void* key) const {
    const auto found = std::ranges::find(values_, key, [](const auto& value) { return value.first; });
    return found == values_.end() ? nullptr : found->second.get();
}

} // namespace vireo::impl
