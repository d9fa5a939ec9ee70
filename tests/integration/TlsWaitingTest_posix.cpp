// How often sessions are asked whose handshakes wait for their clients.

#include "integration/TlsServer.h"
#include "support/WaitUntil.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>

namespace vireotest {
namespace {

/// Of everybody in this process, clients among them.
std::atomic<std::size_t> handshakeCalls{0};

} // namespace
} // namespace vireotest

// In front of GnuTLS's own, which the engine calls.
int gnutls_handshake(gnutls_session_t session) {
    static const auto next = reinterpret_cast<decltype(&gnutls_handshake)>(dlsym(RTLD_NEXT, "gnutls_handshake"));
    const int result = next(session);
    ++vireotest::handshakeCalls;
    return result;
}

namespace vireotest {
namespace {

/// A beginning of a handshake.
constexpr std::string_view Begun = "\x16\x03\x01\x02";

class TlsWaiting : public TlsServing {
protected:
    static constexpr std::size_t Waiting = 50;

    /// Clients that stop in the middle of their handshakes. Each is asked when its bytes have come, and once more.
    void connectWaiting() {
        const std::size_t before = handshakeCalls;
        for (std::size_t i = 0; i < Waiting; ++i) {
            waiting_.emplace_back(port_);
            waiting_.back().send(std::string(Begun));
        }
        EXPECT_TRUE(waitUntil([&] { return handshakeCalls >= before + 2 * Waiting; }));
    }

    std::vector<RawClient> waiting_;
};

TEST_F(TlsWaiting, HandshakesThatStandStillAreNotAskedWhileOthersAreServed) {
    start();
    TlsClient healthy(port_);
    EXPECT_EQ(healthy.exchange(get("/")).status, 200);
    connectWaiting();
    const std::size_t before = handshakeCalls;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(healthy.exchange(get("/")).status, 200);
    }
    EXPECT_EQ(handshakeCalls, before);
}

TEST_F(TlsWaiting, HandshakeThatGoesOnIsAskedAndNoOther) {
    start();
    connectWaiting();
    const std::size_t before = handshakeCalls;
    waiting_.front().send("\x01");
    EXPECT_TRUE(waitUntil([&] { return handshakeCalls >= before + 2; }));
    EXPECT_TRUE(isServed());
    // The handshake of who was served is among them, on both sides.
    EXPECT_LT(handshakeCalls, before + Waiting);
}

} // namespace
} // namespace vireotest
