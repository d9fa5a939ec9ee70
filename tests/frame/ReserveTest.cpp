#include "vireo/support/Reserve.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct State : ql::impl::Reserve {
    explicit State(bool& gone) : gone_(gone) {}
    ~State() override { gone_ = true; }

    bool& gone_;
};

TEST(Reserve, WhatIsKeptGoesWithItsOwner) {
    bool gone = false;
    {
        const std::unique_ptr<ql::impl::Reserve> reserve = std::make_unique<State>(gone);
        EXPECT_FALSE(gone);
    }
    EXPECT_TRUE(gone);
}

} // namespace
