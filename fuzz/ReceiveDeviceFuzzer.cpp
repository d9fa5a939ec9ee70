// The request body's device under any sequence of operations that doesn't block, beside a queue of bytes.

#include "Check.h"
#include "FuzzInput.h"
#include "support/FakeRequest.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace vireofuzz;

/// What the device must hold.
struct Model {
    std::string buffered;
    std::uint64_t read = 0;
    std::uint64_t fed = 0;
    bool isFeedOver = false;
    std::string error;

    bool isAtEnd() const { return (isFeedOver && buffered.empty()) || !error.empty(); }
};

/// Different at each position, so that what is lost, doubled or moved shows.
std::string patternFrom(std::uint64_t position, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((position + i) % 251);
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    vireotest::FakeServerImpl application;
    vireotest::FakeRequest request(application);
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    Model model;
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
                check(taken == 0, "bytes are taken after the end");
            } else {
                check(taken == bytes.size(), "bytes are refused");
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
            check(count == expected, "another count of bytes");
            check(bytes.compare(0, expected, model.buffered, 0, expected) == 0, "other bytes");
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
        check(device.hasDeviceError() == !model.error.empty() && device.getDeviceErrorMsg() == model.error,
              "another device error");
        check(static_cast<std::uint64_t>(device.getReceivedBytes()) == model.read, "another count of read bytes");
        // A read finds the end; the bytes that were left when the feed ended tell of it only then.
        check(device.atEnd() == model.isAtEnd(), "the end is missed or made up");
    }
    return 0;
}
