#pragma once

#include "engine/EngineConnection.h"

#include <mutex>
#include <set>

#include <gtest/gtest.h>

namespace vireotest {

/// Stands for the engine's suspension of the connections of a test, and complains of what the engine doesn't bear.
class FakeSuspensions {
public:
    FakeSuspensions() { before_ = ql::impl::suspensionCalls.exchange(&Calls); }
    ~FakeSuspensions() {
        EXPECT_TRUE(suspended.empty()) << "at the end of the engine";
        suspended.clear();
        ql::impl::suspensionCalls = before_;
    }
    FakeSuspensions(const FakeSuspensions&) = delete;
    FakeSuspensions& operator=(const FakeSuspensions&) = delete;

    /// A connection is known by an address that nothing else has.
    static ql::impl::EngineConnection connectionAt(const void* place) {
        return ql::impl::EngineConnection(static_cast<MHD_Connection*>(const_cast<void*>(place)));
    }
    static bool isSuspended(ql::impl::EngineConnection connection) {
        const std::lock_guard lock(mutex);
        return suspended.count(connection.handle()) != 0;
    }

private:
    static void suspend(MHD_Connection* connection) {
        const std::lock_guard lock(mutex);
        EXPECT_TRUE(suspended.insert(connection).second);
    }
    static void resume(MHD_Connection* connection) {
        const std::lock_guard lock(mutex);
        EXPECT_EQ(suspended.erase(connection), 1U);
    }

    static inline std::mutex mutex;
    static inline std::set<const MHD_Connection*> suspended;
    static constexpr ql::impl::SuspensionCalls Calls{&FakeSuspensions::suspend, &FakeSuspensions::resume};
    const ql::impl::SuspensionCalls* before_;
};

} // namespace vireotest
