#include "reliability/PoolModel.h"
#include "reliability/Choices.h"
#include "reliability/Seeds.h"

#include <gtest/gtest.h>

namespace vireotest {
namespace {

TEST(PoolModel, PoolWithoutWorkersDoesWhatItsRecordSays) {
    forEachSeed(300, [](std::uint64_t seed) {
        const std::string bytes = randomBytes(seed, 300);
        Choices choices(bytes);
        PoolModel(choices).drive();
    });
}

} // namespace
} // namespace vireotest
