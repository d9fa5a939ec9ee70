// SPDX-License-Identifier: MIT
#include "app/run/Abandoned.h"

#include "app/kernel/HandlerMark.h"
#include "app/run/Runner.h"
#include "frame/NeverDestroyed.h"
#include "vireo/support/qlLog.h"

#include <cstdlib>
#include <utility>
#include <vector>

namespace vireo::impl {

namespace {

constexpr int PatienceMs = 5000;

struct List {
    qlMutex mutex;
    std::vector<std::shared_ptr<Runner>> runners QL_GUARDED_BY(mutex);
};

/// For the rest of the process: what does not end stays in it.
List& list() {
    static ql::impl::NeverDestroyed<List> object;
    return *object;
}

void add(std::shared_ptr<Runner>&& runner) {
    List& abandoned = list();
    const qlMutexLocker locker(abandoned.mutex);
    abandoned.runners.push_back(std::move(runner));
}

} // namespace

void Abandoned::Add(std::shared_ptr<Runner> runner) {
    [[maybe_unused]] static const int registered = std::atexit([] { Join(); });
    add(std::move(runner));
}

void Abandoned::Join() {
    std::vector<std::shared_ptr<Runner>> runners;
    {
        List& abandoned = list();
        const qlMutexLocker locker(abandoned.mutex);
        runners.swap(abandoned.runners);
    }
    for (std::shared_ptr<Runner>& runner : runners) {
        if (HandlerMark::isSet(runner->app())) {
            // The function itself ends the process.
            add(std::move(runner));
        } else if (!runner->waitForEnd(PatienceMs)) {
            qlLogObject(qlLogType::Failure, "app") << "a function that destroyed its App does not return";
            add(std::move(runner));
        }
    }
}

} // namespace vireo::impl
