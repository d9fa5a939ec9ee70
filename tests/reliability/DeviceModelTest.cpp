#include "reliability/Choices.h"
#include "reliability/ReceiveDeviceModel.h"
#include "reliability/ResponseDeviceModel.h"
#include "reliability/Seeds.h"

#include <gtest/gtest.h>

namespace vireotest {
namespace {

TEST(DeviceModel, ReceiveDeviceDoesWhatAQueueOfBytesDoes) {
    forEachSeed(3000, 400, [](Choices& choices) { driveReceiveDevice(choices); });
}

TEST(DeviceModel, ResponseDeviceDoesWhatAListOfChunksDoes) {
    forEachSeed(3000, 400, [](Choices& choices) { driveResponseDevice(choices); });
}

} // namespace
} // namespace vireotest
