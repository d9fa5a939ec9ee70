#include "reliability/PoolModel.h"
#include "reliability/Choices.h"
#include "reliability/PoolTraffic.h"
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

TEST(PoolModel, PoolWithWorkersEndsAsItMustWhateverComesFirst) {
    forEachSeed(300, [](std::uint64_t seed) {
        const std::string bytes = randomBytes(seed, 600);
        Choices choices(bytes);
        PoolTraffic(choices).run();
    });
}

} // namespace
} // namespace vireotest
