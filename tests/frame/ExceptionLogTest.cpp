#include "frame/ExceptionLog.h"

#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using testing::ElementsAre;
using vireotest::TestLog;

constexpr qlLogType Failure = qlLogType::Failure;

TEST(ExceptionLogTest, ExceptionIsLoggedAsAFailure) {
    const TestLog log;
    try {
        throw std::runtime_error("no more");
    } catch (...) {
        ql::impl::logCurrentException("the test", "tag");
    }
    EXPECT_THAT(log.lines(), ElementsAre(TestLog::Line{Failure, "tag", "the test threw an exception : no more"}));
}

TEST(ExceptionLogTest, TextOfAnExceptionCannotBeginALineOfItsOwn) {
    const TestLog log;
    try {
        throw std::runtime_error("no note \r\n[5 app] \x1B[2J");
    } catch (...) {
        ql::impl::logCurrentException("the test");
    }
    EXPECT_THAT(log.texts(Failure), ElementsAre("the test threw an exception : no note   [5 app]  [2J"));
}

TEST(ExceptionLogTest, ExceptionOfAnotherTypeIsLoggedToo) {
    const TestLog log;
    try {
        throw 42;
    } catch (...) {
        ql::impl::logCurrentException("the test");
    }
    EXPECT_THAT(log.texts(Failure), ElementsAre("the test threw an exception of an unknown type"));
}

} // namespace
