#include "engine/ListenAddress.h"

#include <gtest/gtest.h>

namespace {

using ql::impl::listenAddress;

TEST(ListenAddress, IsOfTheLoopbackInterface) {
    const sockaddr_in address = listenAddress(0x1234, false);
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(ntohs(address.sin_port), 0x1234);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), 0x7f000001U);
}

TEST(ListenAddress, OrOfEveryInterface) {
    EXPECT_EQ(ntohl(listenAddress(80, true).sin_addr.s_addr), 0U);
    EXPECT_EQ(ntohs(listenAddress(80, true).sin_port), 80);
}

} // namespace
