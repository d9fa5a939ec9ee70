#include "app/run/RunSetup.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>

namespace vireo::impl {
namespace {

using ql::http::ListenEndpoint;
using std::chrono::milliseconds;

RunPlan planOf(const RunOptions& options) {
    return RunPlan(options.toSettings().plan());
}

RunSetup setupOf(const RunOptions& options) {
    return RunSetup::Of(planOf(options), {});
}

std::string placesOf(const RunSetup& setup) {
    std::string places;
    for (const ListenEndpoint& listener : setup.options.getListeners()) {
        places += listener.toString() + " ";
    }
    return places;
}

TEST(RunSetup, ListensForThisMachineAloneByDefault) {
    EXPECT_EQ(placesOf(setupOf({})), "127.0.0.1:8181 ");
}

TEST(RunSetup, ListensWhereItIsTold) {
    EXPECT_EQ(placesOf(setupOf({.port = 81, .address = "*"})), "*:81 ");
    EXPECT_EQ(placesOf(setupOf({.port = 81, .address = "::1"})), "[::1]:81 ");
    EXPECT_EQ(placesOf(setupOf({.port = 81, .listen = {"127.0.0.1:82", "*:83"}})), "127.0.0.1:82 *:83 ");
    EXPECT_EQ(placesOf(setupOf({.listen = {"[::1]:82", "[fe80::1%lo]:83"}})), "[::1]:82 [fe80::1%lo]:83 ");
    EXPECT_EQ(placesOf(setupOf({.port = 81, .address = "fe80::1%lo"})), "[fe80::1%lo]:81 ");
}

TEST(RunSetup, NamesTheFieldThatHasNoAddress) {
    const auto refusalOf = [](const RunOptions& options) -> std::string {
        try {
            return "none, " + placesOf(setupOf(options));
        } catch (const std::invalid_argument& error) {
            const std::string text = error.what();
            return text.substr(0, text.find(" is no "));
        }
    };
    for (const char* address : {"localhost", "127.0.0.1:8080", "[::1]", "", "300.1.1.1", "*:80"}) {
        EXPECT_EQ(refusalOf({.address = address}), "RunOptions::address : \"" + std::string(address) + "\"");
    }
    for (const char* place : {"nowhere", "localhost:80", "127.0.0.1", "::1", ":80", "300.1.1.1:80", "unix:"}) {
        EXPECT_EQ(refusalOf({.listen = {place}}), "RunOptions::listen : \"" + std::string(place) + "\"");
    }
}

TEST(RunSetup, TakesThePortAsAnyNumberAndLooksAtIt) {
    const int port = std::stoi("65535");
    EXPECT_EQ(placesOf(setupOf({.port = port})), "127.0.0.1:65535 ");
    EXPECT_EQ(placesOf(setupOf({.port = 0})), "127.0.0.1:0 ");
    for (const int wrong : {-1, 65536, 65536 + 8181}) {
        EXPECT_THROW(setupOf({.port = wrong}), std::invalid_argument) << wrong;
        EXPECT_THROW(setupOf({.port = wrong, .listen = {"*:83"}}), std::invalid_argument) << wrong;
    }
}

TEST(RunSetup, PrefersWhatAServiceManagerHasGiven) {
    EXPECT_EQ(placesOf(RunSetup::Of(planOf({.listen = {"*:83"}}), {ListenEndpoint::Tcp("127.0.0.1", 84)})),
              "127.0.0.1:84 ");
}

TEST(RunSetup, NeverServesWithoutTheTlsThatWasAskedFor) {
    EXPECT_THROW(setupOf({.certificate = "cert.pem"}), std::invalid_argument);
    EXPECT_THROW(setupOf({.key = "key.pem"}), std::invalid_argument);
    EXPECT_THROW(setupOf({.certificate = "/nowhere/cert.pem", .key = "/nowhere/key.pem"}), std::runtime_error);
}

TEST(RunSetup, TakesTimesUpToADay) {
    EXPECT_EQ(setupOf({.patience = milliseconds(86400000)}).patience, milliseconds(86400000));
    EXPECT_EQ(setupOf({.grace = milliseconds(7)}).options.getDrainGraceMs(), 7U);
    EXPECT_THROW(setupOf({.patience = milliseconds(86400001)}), std::invalid_argument);
    EXPECT_THROW(setupOf({.patience = milliseconds(-1)}), std::invalid_argument);
    EXPECT_THROW(setupOf({.grace = milliseconds(-1)}), std::invalid_argument);
}

TEST(RunSetup, KeepsIdleConnectionsForAsLongAsItIsTold) {
    EXPECT_EQ(setupOf({}).parameters.connectionTimeoutMs, 360000U);
    EXPECT_EQ(setupOf({.idle = milliseconds(5000)}).parameters.connectionTimeoutMs, 5000U);
    EXPECT_EQ(setupOf({.idle = milliseconds(0)}).parameters.connectionTimeoutMs, 0U);
    EXPECT_THROW(setupOf({.idle = milliseconds(86400001)}), std::invalid_argument);
    EXPECT_THROW(setupOf({.idle = milliseconds(-1)}), std::invalid_argument);
}

TEST(RunSetup, HasBodiesComeAtAKibibyteASecondUnlessTheHookSaysOtherwise) {
    const RunSetup setup = setupOf({});
    EXPECT_EQ(setup.options.getBodyProgressBytes(), 32768U);
    EXPECT_EQ(setup.options.getBodyProgressMs(), 30000U);
    const RunSetup other =
        setupOf({.server = [](ql::http::ServerOptions& options) { options.setBodyProgress(1, 1000); }});
    EXPECT_EQ(other.options.getBodyProgressBytes(), 1U);
}

TEST(RunSetup, CountsWorkersByHardwareThreads) {
    EXPECT_EQ(defaultWorkers(0), 8U);
    EXPECT_EQ(defaultWorkers(3), 12U);
    EXPECT_EQ(defaultWorkers(200), 64U);
    EXPECT_EQ(setupOf({.workers = 3, .queue = 5}).limits.workers, 3U);
    EXPECT_EQ(setupOf({.workers = 3, .queue = 5}).limits.queue, 5U);
    EXPECT_EQ(setupOf({.workers = 3}).limits.extra, 512U) << "threads that wait for clients";
    EXPECT_EQ(setupOf({.threads = 7}).parameters.threadPoolSize, 7U);
    EXPECT_EQ(setupOf({}).parameters.threadPoolSize, ql::http::HttpServer::Parameters().threadPoolSize);
}

TEST(RunSetup, LetsTheServersHookHaveTheLastWord) {
    const RunSetup setup = setupOf({.grace = milliseconds(7), .server = [](ql::http::ServerOptions& options) {
                                        EXPECT_EQ(options.getDrainGraceMs(), 7U);
                                        options.setDrainGraceMs(9);
                                    }});
    EXPECT_EQ(setup.options.getDrainGraceMs(), 9U);
}

TEST(RunSetup, IsNoneWhereTheAccessLogCannotBeOpened) {
    EXPECT_THROW(setupOf({.accessLog = "/nowhere/access.log"}), std::runtime_error);
}

} // namespace
} // namespace vireo::impl
