#include "reliability/PoolModel.h"
#include "reliability/Choices.h"
#include "reliability/PoolTraffic.h"
#include "reliability/Seeds.h"

#include <gtest/gtest.h>

namespace vireotest {
namespace {

TEST(PoolModel, PoolWithoutWorkersDoesWhatItsRecordSays) {
    forEachSeed(300, 300, [](Choices& choices) { drivePoolModel(choices); });
}

TEST(PoolModel, PoolWithWorkersEndsAsItMustWhateverComesFirst) {
    forEachSeed(300, 600, [](Choices& choices) { runPoolTraffic(choices); });
}

} // namespace
} // namespace vireotest
