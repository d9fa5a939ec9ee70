#include "app/run/Observing.h"
#include "vireo/app.h"
#include "vireo/app/TestClient.h"

#include <gtest/gtest.h>

#include <memory>

namespace vireo {
namespace {

TEST(Health, SaysThatTheRunIsStartingUntilItHasBegun) {
    App app;
    // A client may ask as soon as the server listens, which is before the start is through.
    app.get("/health", impl::healthHandler(std::make_shared<impl::CurrentService>(), {}));
    TestClient client(app);
    EXPECT_EQ(client.get("/health").status(), 503);
    EXPECT_EQ(client.get("/health").body(), "starting\n");
}

} // namespace
} // namespace vireo
