#include "support/FreePort.h"
#include "vireo/app.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace vireotest {

// Compiled with a header of another layout.
void startWithOtherLayout(vireo::App& app, std::uint16_t port);

namespace {

TEST(RunOptions, OfTwoLayoutsStandBesideEachOther) {
    vireo::App app;
    const std::uint16_t port = freePort();
    app.start({.port = port, .quiet = true});
    EXPECT_EQ(app.port(), port);
    app.stop();
    startWithOtherLayout(app, port);
    EXPECT_EQ(app.port(), port);
}

} // namespace
} // namespace vireotest
