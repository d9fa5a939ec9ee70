#include "support/TestLog.h"
#include "vireo/support/HashHelper.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"
#include "vireo/support/qlWaitCondition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <iomanip>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// What crosses the border between library and application. Where a C++ runtime is part of the DLL, the application has
// another one, and all of this goes from one to the other.

namespace {

using testing::ElementsAre;
using vireotest::TestLog;

class Thread : public qlThread {
public:
    explicit Thread(std::function<void()> body) : body_(std::move(body)) {}
    ~Thread() override { waitThread(NoTimeLimit); }

private:
    void run() override { body_(); }
    const std::function<void()> body_;
};

struct OwnError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What the library logs when `body` throws on a thread of its making.
std::vector<std::string> logOf(const std::function<void()>& body) {
    const TestLog log;
    Thread thread(body);
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    return log.texts(qlLogType::Failure);
}

} // namespace

TEST(ApplicationBorder, LibraryCatchesStandardExceptions) {
    EXPECT_THAT(logOf([] { throw std::runtime_error("thrown"); }), ElementsAre("a thread threw an exception : thrown"));
    EXPECT_THAT(logOf([] { throw std::out_of_range(""); }), ElementsAre("a thread threw an exception : "));
}

TEST(ApplicationBorder, LibraryCatchesExceptionsOfTheApplicationsOwnTypes) {
    EXPECT_THAT(logOf([] { throw OwnError("own"); }), ElementsAre("a thread threw an exception : own"));
    EXPECT_THAT(logOf([] { throw 7; }), ElementsAre("a thread threw an exception of an unknown type"));
}

TEST(ApplicationBorder, ApplicationCatchesExceptionsOfTheLibrary) {
    EXPECT_THROW(ql::HashHelper(static_cast<ql::HashType>(99)), std::runtime_error);
    try {
        const ql::HashHelper hash(static_cast<ql::HashType>(99));
        FAIL();
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "unknown digest");
    }
}

TEST(ApplicationBorder, ApplicationWritesIntoAStreamOfTheLibrary) {
    const TestLog log;
    qlLogObject(qlLogType::Server) << "a" << std::hex << std::setw(4) << 255 << ' ' << 0.5 << std::string(" b");
    EXPECT_THAT(log.texts(qlLogType::Server), ElementsAre("a  ff 0.5 b"));
}

TEST(ApplicationBorder, ConditionOfTheLibraryWaitsWithAMutexTheApplicationLocked) {
    qlMutex mutex;
    qlWaitCondition changed;
    bool isSet = false;
    Thread thread([&] {
        const qlMutexLocker lock(mutex);
        isSet = true;
        changed.wakeAll();
    });
    {
        const qlMutexLocker lock(mutex);
        thread.startThread(nullptr);
        while (!isSet) {
            changed.wait(&mutex, qlWaitCondition::NoTimeLimit);
        }
    }
    EXPECT_TRUE(isSet);
}
