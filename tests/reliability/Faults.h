#pragma once

#include "support/FailingAllocation.h"
#include "support/FailingCalls.h"
#include "support/RawClient.h"
#include "vireo/Vireo.h"

#include <cstddef>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace vireotest {

/// A client whose connection may break at any moment, but who never waits in vain.
inline void visit(const std::function<void()>& exchange) {
    try {
        exchange();
    } catch (const TimedOut& error) {
        ADD_FAILURE() << error.what();
    } catch (const std::runtime_error&) {
        // The connection broke.
    }
}

/// What can fail, as the parameter of a test.
struct Kind {
    const char* name;
    /// Makes the nth from now on fail; 0 for none.
    std::function<void(std::size_t)> arm;
    std::function<std::size_t()> failures;

    friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

inline Kind allocations() {
    return {"Allocation", failAllocationOfOthers, [] { return allocationFailures.load(); }};
}

inline Kind calls(const char* name, FailingCall kind) {
    return {name, [kind](std::size_t nth) { failCall(kind, nth); }, callFailures};
}

inline std::string nameOfKind(const testing::TestParamInfo<Kind>& info) {
    return info.param.name;
}

class Fault : public testing::Test {
protected:
    Fault() { ql::initializeVireo(); }
    ~Fault() override { ql::terminateVireo(); }

    /// Runs the scenario with the first thing failing, then the second, until it goes through without a failure.
    /// @return how many failures there were.
    std::size_t failOneAfterTheOther(const Kind& kind, const std::function<void()>& scenario) {
        for (std::size_t nth = 1; nth < 1000 && !HasFailure(); ++nth) {
            SCOPED_TRACE("failure " + std::to_string(nth));
            const std::size_t before = kind.failures();
            nth_ = nth;
            kind.arm(nth);
            scenario();
            kind.arm(0);
            if (kind.failures() == before) {
                return nth - 1;
            }
        }
        ADD_FAILURE() << "there is no end to it";
        return 0;
    }

    std::size_t failAllocations(const std::function<void()>& scenario) {
        return failOneAfterTheOther(allocations(), scenario);
    }

    std::size_t failCalls(FailingCall kind, const std::function<void()>& scenario) {
        return failOneAfterTheOther(calls("Call", kind), scenario);
    }

    /// Which is to fail now, for a scenario that says itself from when on it is counted.
    std::size_t nth() const { return nth_; }

private:
    std::size_t nth_ = 0;
};

} // namespace vireotest
