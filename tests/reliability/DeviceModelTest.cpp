#include "reliability/Choices.h"
#include "reliability/ReceiveDeviceModel.h"
#include "reliability/ResponseDeviceModel.h"
#include "reliability/Seeds.h"

#include <gtest/gtest.h>

namespace vireotest {
namespace {

TEST(DeviceModel, ReceiveDeviceDoesWhatAQueueOfBytesDoes) {
    forEachSeed(150, [](std::uint64_t seed) {
        const std::string bytes = randomBytes(seed, 400);
        Choices choices(bytes);
        driveReceiveDevice(choices);
    });
}

TEST(DeviceModel, ResponseDeviceDoesWhatAListOfChunksDoes) {
    forEachSeed(150, [](std::uint64_t seed) {
        const std::string bytes = randomBytes(seed, 400);
        Choices choices(bytes);
        driveResponseDevice(choices);
    });
}

} // namespace
} // namespace vireotest
