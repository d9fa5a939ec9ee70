#pragma once

#include "reliability/Choices.h"
#include "reliability/ModelCheck.h"
#include "reliability/PatternFrom.h"
#include "reliability/Room.h"
#include "support/FakeRequest.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vireotest {

/// What the device must hold. Sizes only: the bytes are known by their position.
struct ReceiveModel {
    std::uint64_t read = 0;
    std::uint64_t fed = 0;
    bool isFeedOver = false;
    std::string error;

    std::uint64_t buffered() const { return fed - read; }
    bool isAtEnd() const { return (isFeedOver && buffered() == 0) || !error.empty(); }
};

/// The request body's device under any sequence of operations that doesn't block, beside their count.
/// @throws std::logic_error when they differ.
inline void driveReceiveDevice(Choices& input) {
    FakeServerImpl application;
    FakeRequest request(application);
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    ReceiveModel model;
    static Room room;
    while (!input.isUsedUp()) {
        switch (input.takeNumber(7)) {
        case 0:
        case 1:
        case 2: {
            const std::string_view bytes = patternFrom(model.fed, input.takeSize(0x1FFFF));
            const qlMutexLocker lock(device.getLock());
            const std::uint64_t taken = device.writeBytes(bytes.data(), bytes.size());
            if (model.isFeedOver) {
                model.error = "no more feed";
                expectModel(taken == 0, "bytes are taken after the end");
            } else {
                expectModel(taken == bytes.size(), "bytes are refused");
                model.fed += bytes.size();
            }
            break;
        }
        case 3:
        case 4:
        case 5: {
            std::uint64_t wanted = input.takeSize(0x2FFFF);
            if (!model.isFeedOver) {
                wanted = std::min(wanted, model.buffered()); // more would wait for the feed
            }
            const std::uint64_t count = device.readBytes(room.begin(wanted), wanted);
            const std::uint64_t expected = model.isAtEnd() ? 0 : std::min(wanted, model.buffered());
            expectModel(count == expected, "another count of bytes");
            expectModel(room.text(expected) == patternFrom(model.read, expected), "other bytes");
            expectModel(room.isKept(), "bytes behind the room");
            model.read += expected;
            break;
        }
        case 6: {
            const qlMutexLocker lock(device.getLock());
            device.endFeed();
            model.isFeedOver = true;
            break;
        }
        default:
            if (model.isFeedOver && model.buffered() == 0) {
                device.reset();
                model = {};
            }
            break;
        }
        expectModel(device.hasDeviceError() == !model.error.empty() && device.getDeviceErrorMsg() == model.error,
                    "another device error");
        expectModel(static_cast<std::uint64_t>(device.getReceivedBytes()) == model.read, "another count of read bytes");
        // A read finds the end; the bytes that were left when the feed ended tell of it only then.
        expectModel(device.atEnd() == model.isAtEnd(), "the end is missed or made up");
    }
}

} // namespace vireotest
