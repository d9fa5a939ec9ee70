#pragma once

#include "streams/ResponseWait.h"

#include <cstdint>
#include <vector>

namespace vireotest {

/// Only notes what it is told.
class FakeWait : public ql::impl::ResponseWait {
public:
    void progress() override { ++progressed; }
    void wait(ql::HttpBaseRequest& request, std::int64_t /*nowMs*/) override { waitedFor.push_back(&request); }

    int progressed = 0;
    std::vector<const ql::HttpBaseRequest*> waitedFor;
};

} // namespace vireotest
