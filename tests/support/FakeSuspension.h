#pragma once

#include "engine/EngineConnection.h"

#include <atomic>

#include <gtest/gtest.h>

namespace vireotest {

/// Stands for the engine's suspension of the only connection of a test, and complains of what the engine doesn't bear.
class FakeSuspension {
public:
    FakeSuspension() {
        suspended = 0;
        resumed = 0;
        before_ = ql::impl::suspensionCalls.exchange(&Calls);
    }
    ~FakeSuspension() {
        EXPECT_FALSE(isSuspended()) << "at the end of the connection";
        ql::impl::suspensionCalls = before_;
    }
    FakeSuspension(const FakeSuspension&) = delete;
    FakeSuspension& operator=(const FakeSuspension&) = delete;

    static bool isSuspended() { return suspended != resumed; }

    static inline std::atomic<int> suspended{0};
    static inline std::atomic<int> resumed{0};

private:
    static void suspend(MHD_Connection* /*connection*/) {
        EXPECT_FALSE(isSuspended());
        ++suspended;
    }
    static void resume(MHD_Connection* /*connection*/) {
        EXPECT_TRUE(isSuspended());
        ++resumed;
    }

    static constexpr ql::impl::SuspensionCalls Calls{&FakeSuspension::suspend, &FakeSuspension::resume};
    const ql::impl::SuspensionCalls* before_;
};

} // namespace vireotest
