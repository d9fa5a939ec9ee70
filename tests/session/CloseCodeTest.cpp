#include "session/CloseCode.h"

#include <gtest/gtest.h>

#include <set>

using namespace ql::impl;

TEST(CloseCode, OnlyRegisteredOnesAndThoseOfApplicationsMayBeInAFrame) {
    const std::set<unsigned int> registered = {1000, 1001, 1002, 1003, 1007, 1008, 1009, 1010, 1011, 1012, 1013, 1014};
    for (unsigned int code = 0; code <= 0xFFFF; ++code) {
        EXPECT_EQ(CloseCode::mayBeInFrame(static_cast<std::uint16_t>(code)),
                  registered.contains(code) || code / 1000 == 3 || code / 1000 == 4)
            << code;
    }
}
