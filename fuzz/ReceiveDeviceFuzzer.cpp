#include "Check.h"
#include "reliability/ReceiveDeviceModel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vireotest::Choices input(data, size);
    vireotest::driveReceiveDevice(input);
    return 0;
}
