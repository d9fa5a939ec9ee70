#pragma once

namespace vireotest {

/// Makes an allocation of this thread fail while it lives: the one that follows `successes` others.
class FailingAllocation {
public:
    explicit FailingAllocation(int successes);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
};

} // namespace vireotest
