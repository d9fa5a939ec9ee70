#include "app/run/Urls.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vireo::impl {
namespace {

using ql::http::ListenEndpoint;
using Texts = std::vector<std::string>;

TEST(Urls, NameAPlaceThatClientsReach) {
    EXPECT_EQ(urlsOf({ListenEndpoint::Tcp("127.0.0.1", 0), ListenEndpoint::Tcp("::1", 0)}, {81, 82}),
              (Texts{"http://127.0.0.1:81/", "http://[::1]:82/"}));
    EXPECT_EQ(urlsOf({ListenEndpoint::DualStack(0), ListenEndpoint::Tcp("0.0.0.0", 0), ListenEndpoint::Tcp("::", 0)},
                     {81, 82, 83}),
              (Texts{"http://localhost:81/", "http://localhost:82/", "http://localhost:83/"}));
}

TEST(Urls, NameUnixSocketsByTheirPath) {
    EXPECT_EQ(urlsOf({ListenEndpoint::Unix("/run/my.sock")}, {0}), Texts{"unix:/run/my.sock"});
}

TEST(Urls, OfAServerThatDoesNotRunAreNone) {
    EXPECT_EQ(urlsOf({ListenEndpoint::DualStack(0)}, {}), Texts{});
}

} // namespace
} // namespace vireo::impl
