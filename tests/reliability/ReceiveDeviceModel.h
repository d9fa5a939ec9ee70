#pragma once

#include "reliability/Choices.h"
#include "reliability/ModelCheck.h"
#include "reliability/PatternFrom.h"
#include "support/FakeRequest.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vireotest {

/// What the device must hold.
struct ReceiveModel {
    std::string buffered;
    std::uint64_t read = 0;
    std::uint64_t fed = 0;
    bool isFeedOver = false;
    std::string error;

    bool isAtEnd() const { return (isFeedOver && buffered.empty()) || !error.empty(); }
};

/// The request body's device under any sequence of operations that doesn't block, beside a queue of bytes.
/// @throws std::logic_error when they differ.
inline void driveReceiveDevice(Choices& input) {
    FakeServerImpl application;
    FakeRequest request(application);
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    ReceiveModel model;
    while (!input.isUsedUp()) {
        switch (input.takeNumber(7)) {
        case 0:
        case 1:
        case 2: {
            const std::string bytes = patternFrom(model.fed, input.takeNumber(0x1FFFF));
            const qlMutexLocker lock(device.getLock());
            const std::uint64_t taken = device.writeBytes(bytes.data(), bytes.size());
            if (model.isFeedOver) {
                model.error = "no more feed";
                expectModel(taken == 0, "bytes are taken after the end");
            } else {
                expectModel(taken == bytes.size(), "bytes are refused");
                model.buffered += bytes;
                model.fed += bytes.size();
            }
            break;
        }
        case 3:
        case 4:
        case 5: {
            std::size_t wanted = input.takeNumber(0x2FFFF);
            if (!model.isFeedOver) {
                wanted = std::min(wanted, model.buffered.size()); // more would wait for the feed
            }
            std::string bytes(wanted, '?');
            const std::uint64_t count = device.readBytes(bytes.data(), wanted);
            const std::size_t expected = model.isAtEnd() ? 0 : std::min(wanted, model.buffered.size());
            expectModel(count == expected, "another count of bytes");
            expectModel(bytes.compare(0, expected, model.buffered, 0, expected) == 0, "other bytes");
            model.buffered.erase(0, expected);
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
            if (model.isFeedOver && model.buffered.empty()) {
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
