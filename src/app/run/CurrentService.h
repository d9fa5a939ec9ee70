// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <memory>

namespace vireo::impl {

class Service;

/// The run that an App has at the time, for those of its routes that tell of it.
class CurrentService {
public:
    void set(const std::shared_ptr<Service>& service) QL_EXCLUDES(mutex_) {
        const qlMutexLocker locker(mutex_);
        service_ = service;
    }

    /// Null between two runs.
    std::shared_ptr<Service> get() const QL_EXCLUDES(mutex_) {
        const qlMutexLocker locker(mutex_);
        return service_.lock();
    }

private:
    mutable qlMutex mutex_;
    std::weak_ptr<Service> service_ QL_GUARDED_BY(mutex_);
};

} // namespace vireo::impl
