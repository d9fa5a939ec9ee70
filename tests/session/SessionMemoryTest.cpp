#include "session/SessionCore.h"
#include "session/SessionRoster.h"
#include "session/pool/TaskPool.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <thread>
#include <vector>

// The whole program allocates through these, which count what is in use.

namespace {

std::atomic<std::size_t> bytesInUse{0};

struct alignas(std::max_align_t) Header {
    std::size_t size;
};

void release(void* memory) noexcept {
    if (memory != nullptr) {
        Header* const header = static_cast<Header*>(memory) - 1;
        bytesInUse -= header->size;
        std::free(header);
    }
}

} // namespace

void* operator new(std::size_t size) {
    if (Header* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size))) {
        header->size = size;
        bytesInUse += size;
        return header + 1;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}

namespace {

using namespace ql::impl;
using wstest::clientFrame;

class EchoSession : public ql::http::WebSocketSession {
    void onText(std::string_view text) override { sendText(text); }
};

class IdleSessions : public testing::Test {
protected:
    static constexpr std::size_t Count = 100;

    ~IdleSessions() override {
        roster.cut(pool);
        while (!roster.isEmpty()) {
            std::this_thread::yield();
        }
    }

    void start(const std::optional<DeflateAgreement>& deflate) {
        auto settings = std::make_shared<SessionSettings>();
        settings->compression.emplace();
        const std::shared_ptr<const SessionSettings> shared = std::move(settings);
        for (wstest::UpgradeHandle& handle : handles) {
            auto session = std::make_unique<EchoSession>();
            SessionCore::Of(*session).prepare(shared, deflate);
            const auto core =
                SessionCore::Begin({std::move(session), handle.sockets.server, &handle, InvalidSocket, {}});
            ASSERT_TRUE(roster.add(core));
            ASSERT_TRUE(pool.add(core));
        }
    }

    /// Each gets a long message, compressed or not, and answers it.
    void exchange() {
        const wstest::Bytes message = clientFrame(0x81, wstest::Bytes(100000, 'x'));
        for (wstest::UpgradeHandle& handle : handles) {
            ASSERT_TRUE(wstest::sendAll(handle.sockets.client, message));
            ASSERT_FALSE(wstest::receiveFrame(handle.sockets.client).empty());
        }
    }

    /// What one takes once it rests. The last turn may have to end.
    std::size_t bytesEach(std::size_t before) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        std::size_t each = 0;
        do {
            std::this_thread::yield();
            each = (bytesInUse - before) / Count;
        } while (each > Most && std::chrono::steady_clock::now() < deadline);
        return each;
    }

    static constexpr std::size_t Most = 2048;

    std::vector<wstest::UpgradeHandle> handles{Count};
    wstest::FakeEngine engine;
    SessionRoster roster;
    TaskPool pool{2};
};

} // namespace

TEST_F(IdleSessions, TakeTwoKibibytesAtTheMost) {
    const std::size_t before = bytesInUse;
    start({});
    exchange();
    const std::size_t each = bytesEach(before);
    std::cout << "an idle session takes " << each << " bytes, of which its core " << sizeof(SessionCore) << '\n';
    EXPECT_LE(each, Most);
}

TEST_F(IdleSessions, TakeNoMoreWithCompressionThatForgets) {
    DeflateAgreement agreement;
    agreement.serverNoContextTakeover = true;
    agreement.clientNoContextTakeover = true;
    const std::size_t before = bytesInUse;
    start(agreement);
    exchange();
    const std::size_t each = bytesEach(before);
    std::cout << "an idle session that compresses takes " << each << " bytes\n";
    EXPECT_LE(each, Most);
}
