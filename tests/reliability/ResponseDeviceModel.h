#pragma once

#include "reliability/Choices.h"
#include "reliability/ModelCheck.h"
#include "reliability/PatternFrom.h"
#include "reliability/Room.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace vireotest {

inline constexpr std::size_t MinChunk = 65536;
inline constexpr std::uint64_t MostQueued = 262144;
inline constexpr std::int64_t HoldBackMs = 120000;

/// What the device must hold. Sizes only: the bytes are known by their position.
struct ResponseModel {
    struct Chunk {
        std::size_t size;
        std::size_t capacity;
    };
    std::deque<Chunk> pending;
    std::deque<std::size_t> queue;
    /// Of the chunk that the daemon is at.
    std::deque<std::size_t> daemon;
    std::uint64_t written = 0;
    std::uint64_t taken = 0;
    std::int64_t lastHandoverMs = 0;
    bool isForced = false;
    bool isEnded = false;
    bool isWhole = false;
    bool isLost = false;

    std::uint64_t queued() const {
        std::uint64_t bytes = 0;
        for (const std::size_t size : queue) {
            bytes += size;
        }
        return bytes;
    }

    void append(std::size_t size) {
        if (!pending.empty()) {
            Chunk& last = pending.back();
            const std::size_t part = std::min(size, last.capacity - last.size);
            last.size += part;
            size -= part;
        }
        if (size > 0) {
            pending.push_back({size, std::max(size, MinChunk)});
        }
    }

    /// @return true when something is handed over.
    bool handOver(bool everything) {
        bool any = false;
        while (!pending.empty() && (everything || pending.front().size == pending.front().capacity)) {
            queue.push_back(pending.front().size);
            pending.pop_front();
            any = true;
        }
        return any;
    }
};

/// The response body's device under any sequence of operations that doesn't block, beside a model of its chunks.
/// @throws std::logic_error when they differ.
inline void driveResponseDevice(Choices& input) {
    FakeClock clock;
    FakeServerImpl application;
    FakeRequest request(application);
    request.handleOnThisThread();
    ql::HttpResponseDevice& device = request.editInternalResponseDevice();
    ResponseModel model;
    model.lastHandoverMs = clock.nowMs();
    static Room room;

    const auto write = [&](std::size_t count, bool isFlush) {
        const bool isTaken = !model.isEnded && !model.isLost;
        if (isTaken && model.queued() > MostQueued) {
            return; // would wait for the daemon
        }
        model.isForced = model.isForced || isFlush;
        const std::string_view bytes = patternFrom(model.written, count);
        if (isFlush) {
            device.flush();
        } else {
            expectModel(device.writeBytes(bytes.data(), count) == (isTaken ? count : 0), "bytes are taken or refused");
        }
        if (!isTaken) {
            return;
        }
        model.append(count);
        model.written += count;
        const bool everything = model.isForced || clock.nowMs() - model.lastHandoverMs >= HoldBackMs;
        model.isForced = false;
        if (model.handOver(everything)) {
            model.lastHandoverMs = clock.nowMs();
        }
    };

    while (!input.isUsedUp()) {
        switch (input.takeNumber(9)) {
        case 0:
        case 1:
        case 2:
            write(input.takeSize(0x1FFFF), false);
            break;
        case 3:
            write(0, true);
            break;
        case 4:
            clock.advanceMs(input.takeNumber(200000));
            break;
        case 5:
            if (input.takeByte() < 64) {
                device.endSending();
                model.isEnded = true;
                if (!model.isLost) {
                    model.handOver(true);
                }
            }
            break;
        case 6:
        case 7: {
            if (model.isWhole) {
                break; // the body went out in one piece
            }
            const std::size_t max = 1 + input.takeNumber(0xFFFF);
            bool isEnd = true;
            bool isNoMore = true;
            const std::uint64_t count = device.sendChunksThreadSafe(room.begin(max), max, isEnd, isNoMore);
            std::size_t expected = 0;
            while (expected < max) {
                if (model.daemon.empty()) {
                    if (model.queue.empty()) {
                        break;
                    }
                    for (std::size_t moved = 0; !model.queue.empty() && moved < max - expected;) {
                        moved += model.queue.front();
                        model.daemon.push_back(model.queue.front());
                        model.queue.pop_front();
                    }
                }
                const std::size_t part = std::min(max - expected, model.daemon.front());
                expected += part;
                model.daemon.front() -= part;
                if (model.daemon.front() == 0) {
                    model.daemon.pop_front();
                }
            }
            expectModel(count == expected, "another count of bytes");
            expectModel(room.text(expected) == patternFrom(model.taken, expected), "other bytes");
            expectModel(room.isKept(), "bytes behind the room");
            model.taken += expected;
            expectModel(isEnd == isNoMore && isEnd == (expected < max && model.isEnded),
                        "the end is missed or made up");
            break;
        }
        case 8:
            if (model.isEnded && model.daemon.empty() && input.takeBool()) {
                std::vector<char> bytes{'x'};
                {
                    const qlMutexLocker lock(device.getLock());
                    device.getData(bytes);
                }
                expectModel(bytes.size() == model.queued(), "another count of bytes");
                for (std::size_t at = 0; at < bytes.size();) {
                    const std::string_view part = patternFrom(model.taken + at, std::min(bytes.size() - at, MinChunk));
                    expectModel(std::string_view(bytes.data() + at, part.size()) == part, "other bytes");
                    at += part.size();
                }
                model.taken += bytes.size();
                model.queue.clear();
                model.isWhole = true;
            }
            break;
        default:
            if (input.takeByte() < 32) {
                const qlMutexLocker lock(device.getLock());
                device.setConnectionLost("Test");
                model.isLost = true;
            }
            break;
        }
        expectModel(device.getDataSize() == model.queued(), "another count of queued bytes");
        expectModel(device.hasDataToSend() == !model.queue.empty(), "queued bytes are missed or made up");
        expectModel(static_cast<std::uint64_t>(device.getSentBytes()) == model.written,
                    "another count of written bytes");
        expectModel(device.isEndSending() == model.isEnded, "the end is missed or made up");
        expectModel(device.atEnd() == (model.isWhole || model.isLost), "the end is missed or made up");
        expectModel(device.hasDeviceError() == model.isLost, "another device error");
        expectModel(!model.isLost || device.getDeviceErrorMsg() == "lost connection : Test", "another device error");
    }
}

} // namespace vireotest
