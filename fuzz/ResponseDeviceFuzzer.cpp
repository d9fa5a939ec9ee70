#include "Check.h"
#include "reliability/ResponseDeviceModel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vireotest::Choices input(data, size);
    vireotest::driveResponseDevice(input);
    return 0;
}
